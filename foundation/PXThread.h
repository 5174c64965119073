#pragma once

/// Names the calling thread for debuggers and /proc; at most 15 characters count.
void PXSetThreadName(const char *name);
