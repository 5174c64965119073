#include "app/cli/BRUsageError.h"

#include "app/cli/BRExitStatus.h"
#include "app/cli/BRTerminal.h"

int BRFailUsage(const BRUsageError &error)
{
    BRTerminal::printError({{}, BRExitWrongUsage, error.description, error.suggestion, {}});
    return BRExitWrongUsage;
}
