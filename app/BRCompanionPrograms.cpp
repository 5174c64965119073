#include "app/BRCompanionPrograms.h"

#include "foundation/BRLog.h"

#include <QCoreApplication>
#include <QProcess>

using namespace Qt::StringLiterals;

void BRCompanionPrograms::startAudioBuddy()
{
    const QString program = QCoreApplication::applicationDirPath() + u"/audiobuddy"_s;
    QProcess buddy;
    buddy.setProgram(program);
    buddy.setArguments({QString::number(QCoreApplication::applicationPid())});
    // Whoever reads our output is not to wait for the end of that program's.
    buddy.setStandardInputFile(QProcess::nullDevice());
    buddy.setStandardOutputFile(QProcess::nullDevice());
    buddy.setStandardErrorFile(QProcess::nullDevice());
    if (!buddy.startDetached())
        BRLog(BRLogWarning, u"Could not start %1"_s.arg(program));
}
