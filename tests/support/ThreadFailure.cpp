#include "tests/support/ThreadFailure.h"

#include <atomic>
#include <cerrno>
#include <utility>

#include <dlfcn.h>
#include <pthread.h>

namespace {

std::atomic<int> s_startsToFailure{0};
std::function<void()> s_meanwhile;

using Start = int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);

} // namespace

// A sanitizer's own definition, where there is one: it must know of every thread.
extern "C" __attribute__((weak)) Start __interceptor_pthread_create;

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument)
{
    if (s_startsToFailure != 0 && --s_startsToFailure == 0) {
        if (s_meanwhile)
            s_meanwhile();
        return EAGAIN;
    }
    static auto* const real = __interceptor_pthread_create != nullptr
                                  ? __interceptor_pthread_create
                                  : reinterpret_cast<Start*>(dlsym(RTLD_NEXT, "pthread_create"));
    return real(thread, attributes, body, argument);
}

namespace Vantor::Test {

ThreadFailure::ThreadFailure(int n, std::function<void()> meanwhile)
{
    s_meanwhile = std::move(meanwhile);
    s_startsToFailure = n;
}

ThreadFailure::~ThreadFailure()
{
    s_startsToFailure = 0;
}

} // namespace Vantor::Test
