#include "app/BRApplicationSupport.h"

#include "foundation/BRLog.h"
#include "foundation/PXFileManager.h"

#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace BRApplicationSupport {

QString applicationSupportFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + u"/Tolvane"_s;
}

QString sharedApplicationSupportFolder()
{
    return u"/usr/local/share/Tolvane"_s;
}

std::optional<QString> folderInApplicationSupportFolder(const QString &name)
{
    const QString support = applicationSupportFolder();
    if (!PXFileManager::createAllDirectoriesForPath(support)) {
        BRLog(BRLogError, u"Could not create the Tolvane application support folder."_s);
        return std::nullopt;
    }
    const QString folder = support + u'/' + name;
    if (!PXFileManager::createAllDirectoriesForPath(folder)) {
        BRLog(BRLogError,
              u"Could not create the %1 folder in the Tolvane application support folder."_s.arg(
                  name));
        return std::nullopt;
    }
    return folder;
}

std::optional<QString> pathInApplicationSupportFolder(const QString &name)
{
    const QString support = applicationSupportFolder();
    // With its parents: the data folder of an account that nobody has used yet is missing too.
    if (!PXFileManager::createAllDirectoriesForPath(support)) {
        BRLog(BRLogError, u"Could not create the Tolvane application support folder."_s);
        return std::nullopt;
    }
    return support + u'/' + name;
}

} // namespace BRApplicationSupport
