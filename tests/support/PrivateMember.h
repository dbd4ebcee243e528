#pragma once

namespace Vantor {

// Lets a test set up a state that the interface cannot reach. An explicit
// instantiation may name a private member; it defines the friend `reach`, which is
// found through Tag:
//
//     struct Messages {
//         friend auto& reach(Messages, UsbMessageQueue& queue);
//     };
//     template struct PrivateMember<Messages, UsbMessageQueue, &UsbMessageQueue::m_messages>;
template <typename Tag, typename Class, auto member> struct PrivateMember {
    friend auto& reach(Tag, Class& object) { return object.*member; }
};

} // namespace Vantor
