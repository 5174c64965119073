#include "foundation/PXThread.h"

#include <sys/prctl.h>

void PXSetThreadName(const char *name)
{
    prctl(PR_SET_NAME, name, 0, 0, 0);
}
