#pragma once

namespace Vantor {

class Output;
class Session;

// Pictures on the LCDs of every panel, dithered in every way, as packed bits and as
// run-length words; on one LCD several layers, one over the other, behind a lock.
namespace PictureScene {

// Throws Failure when a panel does not take a picture.
void play(Session& session, Output& output);

} // namespace PictureScene

} // namespace Vantor
