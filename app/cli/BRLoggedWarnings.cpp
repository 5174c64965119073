#include "app/cli/BRLoggedWarnings.h"

#include "app/cli/BRTerminal.h"
#include "foundation/BRLog.h"
#include "foundation/PXMutex.h"

#include <QStringList>

#include <utility>

namespace {

PXMutex theLock;
QStringList theMessages PX_GUARDED_BY(theLock);

void noteMessage(int level, const QString &message)
{
    if (level != BRLogWarning)
        return;
    const PXLock lock(theLock);
    if (!theMessages.contains(message))
        theMessages.append(message);
}

} // namespace

void BRLoggedWarnings::collect()
{
    BRSetLogListener(noteMessage);
}

void BRLoggedWarnings::drop(const QString &message)
{
    const PXLock lock(theLock);
    theMessages.removeAll(message);
}

void BRLoggedWarnings::print()
{
    BRSetLogListener(nullptr);
    QStringList messages;
    {
        const PXLock lock(theLock);
        messages = std::exchange(theMessages, {});
    }
    for (const QString &message : messages) {
        if (!BRTerminal::hasPrinted(message))
            BRTerminal::printWarning(message);
    }
}
