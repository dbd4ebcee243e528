#pragma once

// The classes of the contract keep default visibility on both sides: the
// library leaves their symbols undefined, the protocol library defines them.
#define MORVANE_PROTOCOL_API __attribute__((visibility("default")))
