#include "audio/PXAuthorization.h"

#include "audio/privileged/PXPrivilegedProtocol.h"
#include "foundation/BRLog.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <unistd.h>

#include <string>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr int kDismissed = 126; ///< pkexec's exit status.
constexpr int kNotAuthorized = 127; ///< Its other one, for everything else.
constexpr int kPatienceMs = 1000; ///< With a helper that has nothing left to do.
constexpr qsizetype kLongestOutput = 65536;

QString helperPath()
{
    const QString folder = QCoreApplication::applicationDirPath();
    const QString paths[] = {folder + u"/tolvane-privileged-helper"_s,
                             folder + u"/../libexec/tolvane-privileged-helper"_s};
    for (const QString &path : paths) {
        // polkit knows the helper by its real path.
        if (QFileInfo(path).isExecutable())
            return QFileInfo(path).canonicalFilePath();
    }
    BRLog(BRLogError, u"There is no tolvane-privileged-helper at "_s + paths[0]);
    return {};
}

} // namespace

QStringList PXAuthorization::defaultLauncher()
{
    const QString helper = helperPath();
    if (helper.isEmpty())
        return {};
    return ::geteuid() == 0 ? QStringList{helper} : QStringList{u"pkexec"_s, helper};
}

PXAuthorization::PXAuthorization() : _process(std::make_unique<QProcess>())
{
    QObject::connect(_process.get(), &QProcess::readyReadStandardOutput, _process.get(),
                     [this] { _readAnswers(); });
    QObject::connect(_process.get(), &QProcess::readyReadStandardError, _process.get(),
                     [this] { _readErrors(); });
}

PXAuthorization::~PXAuthorization()
{
    if (!_process)
        return;
    _process->disconnect();
    _process->closeWriteChannel();
    // Qt would wait for one that never stops talking, whatever the time.
    if (_isNoHelper) {
        _letEnd(std::move(_process));
        return;
    }
    if (_process->state() == QProcess::NotRunning || _process->waitForFinished(kPatienceMs))
        return;
    // It is still asking the user.
    _process->kill();
    if (!_process->waitForFinished(kPatienceMs))
        _letEnd(std::move(_process));
}

void PXAuthorization::leaveAlone(std::unique_ptr<PXAuthorization> authorization)
{
    authorization->_process->disconnect();
    _letEnd(std::move(authorization->_process));
}

/// A QProcess that is destroyed kills its process and waits for it, half a minute if need be;
/// root's processes are not ours to kill.
void PXAuthorization::_letEnd(std::unique_ptr<QProcess> process)
{
    QProcess *const ending = process.release();
    // Known until it has ended, which may be after this program: then it is left, not lost.
    static auto &left = *new QSet<QObject *>;
    left.insert(ending);
    QObject::connect(ending, &QObject::destroyed, [](QObject *gone) { left.remove(gone); });
    ending->closeReadChannel(QProcess::StandardOutput);
    ending->closeReadChannel(QProcess::StandardError);
    if (ending->state() == QProcess::NotRunning)
        ending->deleteLater();
    else
        QObject::connect(ending, &QProcess::finished, ending, &QObject::deleteLater);
}

tl::expected<std::unique_ptr<PXAuthorization>, int>
PXAuthorization::withLauncher(const QStringList &launcher)
{
    if (launcher.isEmpty())
        return tl::unexpected<int>(PXPrivilegedCannotExecute);
    std::unique_ptr<PXAuthorization> authorization(new PXAuthorization);
    authorization->_process->start(launcher.first(), launcher.sliced(1));
    const bool isAnswered = authorization->_waitForAnswers(1);
    if (!isAnswered && !authorization->_isNoHelper)
        return tl::unexpected(authorization->_statusOfRefusal());
    const auto greeting = QByteArray::fromStdString(std::string(PXPrivilegedProtocol::kGreeting));
    if (authorization->_isNoHelper || authorization->_answers.value(0) != greeting) {
        BRLog(BRLogError, launcher.join(u' ') + u" is no helper of this version"_s);
        return tl::unexpected<int>(PXPrivilegedNoAnswer);
    }
    return authorization;
}

bool PXAuthorization::isAlive() const
{
    // Nobody may have run an event loop since it left.
    return !_isNoHelper && _process->state() == QProcess::Running && !_process->waitForFinished(0);
}

int PXAuthorization::executeTask(const QString &path, const QStringList &arguments)
{
    std::vector<std::string> words;
    for (const QString &word : QStringList(path) + arguments) {
        if (word.contains(QChar::Null)) {
            BRLog(BRLogError, u"A task for root has a NUL in its words: "_s + path);
            return PXPrivilegedInvalidParameter;
        }
        words.push_back(QFile::encodeName(word).toStdString());
    }
    // Tasks are answered in their order, also those that begin while another is waited for.
    const qsizetype number = ++_numberOfTasks;
    _process->write(QByteArray::fromStdString(PXPrivilegedProtocol::request(words)));
    if (_isNoHelper || !_waitForAnswers(number + 1)) {
        BRLog(BRLogError, u"The root helper gave no answer to "_s + path);
        return PXPrivilegedNoAnswer;
    }
    const QByteArray answer = _answers.at(number);
    const qsizetype blank = answer.indexOf(' ');
    bool isNumber = false;
    const int status = answer.first(qMax(blank, qsizetype{0})).toInt(&isNumber);
    if (!isNumber) {
        BRLog(BRLogError, u"The root helper answered \"%1\""_s.arg(QString::fromUtf8(answer)));
        return PXPrivilegedNoAnswer;
    }
    if (status != PXPrivilegedDone)
        BRLog(BRLogError, QString::fromUtf8(answer.sliced(blank + 1)));
    return status;
}

bool PXAuthorization::_waitForAnswers(qsizetype count)
{
    const auto isOver = [&] {
        return _answers.size() >= count || _isNoHelper || _process->state() == QProcess::NotRunning;
    };
    while (!isOver()) {
        QEventLoop loop;
        bool wasTold = false;
        const auto tell = [&] {
            wasTold = true;
            loop.quit();
        };
        QObject::connect(_process.get(), &QProcess::readyReadStandardOutput, &loop, tell);
        QObject::connect(_process.get(), &QProcess::stateChanged, &loop, tell);
        QObject::connect(_process.get(), &QProcess::errorOccurred, &loop, tell);
        loop.exec();
        if (!wasTold)
            break; // The application quits, and no event loop runs any more.
    }
    return _answers.size() >= count;
}

void PXAuthorization::_readAnswers()
{
    // Read in any case: QProcess would keep it all.
    const QByteArray output = _process->readAllStandardOutput();
    if (_isNoHelper)
        return;
    _unreadOutput += output;
    for (qsizetype end = 0; (end = _unreadOutput.indexOf('\n')) >= 0;) {
        _answers << _unreadOutput.first(end);
        _unreadOutput.remove(0, end + 1);
    }
    // It says more than it was asked.
    _isNoHelper = _unreadOutput.size() > kLongestOutput || _answers.size() > _numberOfTasks + 1;
    if (_isNoHelper)
        _process->kill();
}

void PXAuthorization::_readErrors()
{
    _errors += _process->readAllStandardError();
    _errors.truncate(kLongestOutput);
}

/// Why the helper was not let in, logged.
int PXAuthorization::_statusOfRefusal()
{
    if (_process->error() == QProcess::FailedToStart) {
        BRLog(BRLogError, _process->program() + u": "_s + _process->errorString());
        return PXPrivilegedCannotExecute;
    }
    // The application quits while the user is asked: nobody is left to be told.
    if (_process->state() != QProcess::NotRunning)
        return PXPrivilegedCancelled;
    const QString errors = QString::fromLocal8Bit(_errors).simplified();
    const bool hasExited = _process->exitStatus() == QProcess::NormalExit;
    if (hasExited && _process->exitCode() == kDismissed)
        return PXPrivilegedCancelled;
    BRLog(BRLogError,
          u"%1 ended with status %2: %3"_s.arg(_process->program())
              .arg(_process->exitCode())
              .arg(errors));
    if (!hasExited || _process->exitCode() != kNotAuthorized)
        return PXPrivilegedNoAnswer;
    // Without polkit, or the bus to it, nobody can be asked either.
    return errors.contains(u"authentication agent"_s) || errors.contains(u"getting authority"_s)
        ? PXPrivilegedNoInteraction
        : PXPrivilegedDenied;
}
