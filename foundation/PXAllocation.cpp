#include "foundation/PXAllocation.h"

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>

namespace {

constexpr std::size_t kHugePage = std::size_t{2} * 1024 * 1024;

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
    // A picture's worth of small pages costs more to look up than to copy where the machine is
    // virtual itself; the kernel is free to refuse.
    const bool isHuge = size >= kHugePage;
    const auto alignment = isHuge ? kHugePage : static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    if (posix_memalign(&memory, alignment, size) != 0)
        return nullptr;
    if (isHuge)
        static_cast<void>(madvise(memory, size, MADV_HUGEPAGE));
    return memory;
}
