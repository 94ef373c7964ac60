#if defined(__SANITIZE_THREAD__)
// A fault is reported where it happens, in the handler of its signal: that is how it is meant to
// be, and no data race.
extern "C" const char* __tsan_default_options() {
    return "report_signal_unsafe=0";
}
#endif
