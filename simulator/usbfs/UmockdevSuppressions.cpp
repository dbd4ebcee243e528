// What the thread sanitizer must not report in a program with a virtual bus; it asks
// for this by name. umockdev and glib are not built for it, so it can't see how they
// synchronise.
extern "C" const char* __tsan_default_suppressions();

const char* __tsan_default_suppressions()
{
    return "race:libumockdev.so.0\n"
           "race:libglib-2.0.so.0\n"
           "race:libgio-2.0.so.0\n";
}
