#pragma once

#include "foundation/PXHandle.h"

#include <cstddef>
#include <cstdlib>

/// Allocate `size` bytes, `PXvalloc2` on a page boundary, whatever `limit` says; a size beyond it
/// only prints "FILE:LINE: PXmalloc beyond limit" (PXvalloc for the other) so that a selection of
/// absurd size is noticed. Null when the system has no memory; released with `free`. The pages
/// are not touched: a buffer for the worst case costs only what is really used of it, for
/// `PXvalloc2` of 2 MiB and more in steps of that size.
void *PXmalloc2(std::size_t size, std::size_t limit, const char *file, unsigned line);
void *PXvalloc2(std::size_t size, std::size_t limit, const char *file, unsigned line);

/// Where the warning goes: true (at start) is standard output, false standard error, for programs
/// whose standard output carries data.
void PXSetAllocationWarningsToStandardOutput(bool does);

/// Owns what the two functions returned.
using PXBuffer = PXHandle<std::byte, std::free>;
