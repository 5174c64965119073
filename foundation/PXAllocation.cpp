#include "foundation/PXAllocation.h"

#include <unistd.h>

#include <atomic>
#include <cstdio>

namespace {

std::atomic<bool> warningsGoToStandardOutput = true;

void warn(const char *function, const char *file, unsigned line)
{
    std::FILE *where = warningsGoToStandardOutput ? stdout : stderr;
    // Nothing can be done about a warning that cannot be written.
    static_cast<void>(std::fprintf(where, "%s:%u: %s beyond limit\n", file, line, function));
}

} // namespace

void PXSetAllocationWarningsToStandardOutput(bool does)
{
    warningsGoToStandardOutput = does;
}

void *PXmalloc2(std::size_t size, std::size_t limit, const char *file, unsigned line)
{
    if (size > limit)
        warn("PXmalloc", file, line);
    return std::malloc(size);
}

void *PXvalloc2(std::size_t size, std::size_t limit, const char *file, unsigned line)
{
    if (size > limit)
        warn("PXvalloc", file, line);
    void *memory = nullptr;
    const auto pageSize = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    return posix_memalign(&memory, pageSize, size) == 0 ? memory : nullptr;
}
