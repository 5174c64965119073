#include "app/cli/BRTerminal.h"

#include <QStringList>

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

using namespace Qt::StringLiterals;

namespace {

/// 0, or the number of the error.
int write(FILE *stream, const QString &text)
{
    const QByteArray bytes = text.toLocal8Bit();
    const auto size = static_cast<std::size_t>(bytes.size());
    errno = 0;
    if (std::fwrite(bytes.constData(), 1, size, stream) == size && std::fflush(stream) == 0)
        return 0;
    return errno != 0 ? errno : EIO;
}

bool hasProgressLine = false;
int theOutputError = 0; ///< The first.
/// Asked while it is still there.
const bool outputIsTerminal = ::isatty(STDOUT_FILENO) == 1;
QStringList thePrintedErrors;

/// As much of `line` as fits; what switches a colour on or off takes no room and is never cut off.
QString fittedLine(const QString &line, int columns)
{
    QString fitted;
    bool isInEscape = false;
    for (const QChar character : line) {
        isInEscape = isInEscape || character == u'\x1b';
        if (isInEscape || columns-- > 0)
            fitted += character;
        if (character == u'm')
            isInEscape = false;
    }
    return fitted;
}

} // namespace

void BRTerminal::print(const QString &line)
{
    const int error = write(stdout, line + u'\n');
    // A terminal that was closed has nobody who waits for the line.
    if (theOutputError == 0 && !(error == EIO && outputIsTerminal))
        theOutputError = error;
}

PXExpected<void> BRTerminal::finishOutput()
{
    if (theOutputError != 0)
        return PXFail(PXPOSIXError(theOutputError, u"Could not write to the standard output"_s));
    return {};
}

bool BRTerminal::hasPrinted(const QString &text)
{
    return std::any_of(thePrintedErrors.begin(), thePrintedErrors.end(), [&](const QString &line) {
        return line.contains(text) || text.contains(line);
    });
}

void BRTerminal::printError(const QString &message)
{
    endProgress();
    thePrintedErrors.append(message);
    write(stderr, u"tolvane: "_s + message + u'\n');
}

void BRTerminal::printError(const PXError &error)
{
    printError(PXErrorLine(error));
}

void BRTerminal::printWarning(const QString &message)
{
    printError(u"warning: "_s + message);
}

void BRTerminal::ringBell()
{
    if (::isatty(STDERR_FILENO) == 1)
        write(stderr, u"\a"_s);
}

bool BRTerminal::showsProgress()
{
    static const bool shows = [] {
        const char *terminal = std::getenv("TERM");
        return ::isatty(STDERR_FILENO) == 1 && terminal && qstrcmp(terminal, "dumb") != 0;
    }();
    return shows;
}

void BRTerminal::showProgress(const QString &line)
{
    if (!showsProgress())
        return;
    winsize window = {};
    const bool knowsWidth = ::ioctl(STDERR_FILENO, TIOCGWINSZ, &window) == 0 && window.ws_col > 1;
    // The cursor stays at the line's beginning, so that a message that comes in between writes
    // over the line instead of behind it.
    write(stderr, u"\x1b[K"_s + fittedLine(line, knowsWidth ? window.ws_col - 1 : 79) + u'\r');
    hasProgressLine = true;
}

void BRTerminal::endProgress()
{
    if (!hasProgressLine)
        return;
    write(stderr, u"\x1b[K"_s);
    hasProgressLine = false;
}

QString BRTerminal::progressBar(double done, int width)
{
    const int filled = static_cast<int>(std::clamp(done, 0.0, 1.0) * width);
    // Colour is decoration here: who set NO_COLOR sees the same bar without it.
    const bool hasColor = qEnvironmentVariableIsEmpty("NO_COLOR");
    const QString bar = QString(filled, u'#') + QString(width - filled, u'.');
    return hasColor ? u"[\x1b[36m%1\x1b[0m]"_s.arg(bar) : u"[%1]"_s.arg(bar);
}
