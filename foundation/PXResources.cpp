#include "foundation/PXResources.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::StringLiterals;

namespace PXResources {

QString folder()
{
    QString named = qEnvironmentVariable("TOLVANE_RESOURCES");
    if (!named.isEmpty())
        return named;
    // Asked of the system and not of QCoreApplication, which the command line may not have yet.
    const QString program = QFileInfo(u"/proc/self/exe"_s).symLinkTarget();
    const QString installed = QDir::cleanPath(QFileInfo(program).path() + u"/../share/tolvane"_s);
    return QFileInfo(installed).isDir() ? installed : QStringLiteral(TOLVANE_SOURCE_RESOURCES);
}

std::optional<QString> pathForResource(const QString &name, const QString &type)
{
    const QString path = folder() + u'/' + name + (type.isEmpty() ? QString() : u'.' + type);
    return QFileInfo::exists(path) ? std::optional(path) : std::nullopt;
}

} // namespace PXResources
