#pragma once

#include <functional>

namespace Vantor::Test {

// Lets starting a thread fail as an exhausted system does, for the object's lifetime:
// the n-th start from now on, by whichever thread. Lifetime: one at a time.
class ThreadFailure {
public:
    // `meanwhile` is called on that thread before.
    explicit ThreadFailure(int n, std::function<void()> meanwhile = nullptr);
    ~ThreadFailure();
    ThreadFailure(const ThreadFailure&) = delete;
    ThreadFailure& operator=(const ThreadFailure&) = delete;
};

} // namespace Vantor::Test
