#pragma once

namespace Vantor::Test {

// Lets the n-th allocation by operator new on this thread fail, counted from the
// construction; none after the destruction.
class AllocationFailure {
public:
    explicit AllocationFailure(int n);
    ~AllocationFailure();
    AllocationFailure(const AllocationFailure&) = delete;
    AllocationFailure& operator=(const AllocationFailure&) = delete;

    bool hasHappened() const;
};

} // namespace Vantor::Test
