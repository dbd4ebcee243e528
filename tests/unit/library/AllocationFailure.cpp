#include "tests/unit/library/AllocationFailure.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

thread_local int t_allocationsToFailure = 0;
thread_local bool t_hasHappened = false;

} // namespace

void* operator new(std::size_t size)
{
    if (t_allocationsToFailure != 0 && --t_allocationsToFailure == 0) {
        t_hasHappened = true;
        throw std::bad_alloc();
    }
    if (void* const memory = std::malloc(size != 0 ? size : 1))
        return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept
{
    std::free(memory);
}

namespace Vantor::Test {

AllocationFailure::AllocationFailure(int n)
{
    t_hasHappened = false;
    t_allocationsToFailure = n;
}

AllocationFailure::~AllocationFailure()
{
    t_allocationsToFailure = 0;
}

// A member, so that it is asked of an object that is there.
// NOLINTNEXTLINE(readability-convert-member-functions-to-static)
bool AllocationFailure::hasHappened() const
{
    return t_hasHappened;
}

} // namespace Vantor::Test
