// libx265 3.5 keeps 1168 bytes of every encoder that it closes; the leak checker asks here what
// not to report. Without the checker nobody calls this.
extern "C" const char *
__lsan_default_suppressions() // NOLINT(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
{
    return "leak:libx265.so\n";
}
