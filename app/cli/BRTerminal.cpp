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

qsizetype shownProgressLines = 0;
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

void BRTerminal::ask(const QString &question)
{
    endProgress();
    write(stderr, question);
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

void BRTerminal::showProgress(const QStringList &lines)
{
    if (!showsProgress())
        return;
    winsize window = {};
    const bool isKnown = ::ioctl(STDERR_FILENO, TIOCGWINSZ, &window) == 0;
    const int columns = isKnown && window.ws_col > 1 ? window.ws_col - 1 : 79;
    const qsizetype most = isKnown && window.ws_row > 1 ? window.ws_row - 1 : 1;
    if (shownProgressLines > std::min(lines.size(), most))
        endProgress();
    shownProgressLines = std::min(lines.size(), most);
    if (shownProgressLines == 0)
        return;
    QStringList drawn;
    for (const QString &line : lines.first(shownProgressLines))
        drawn << u"\x1b[K"_s + fittedLine(line, columns);
    // The cursor stays at the beginning of the first, so that a message that comes in between
    // writes over them instead of behind.
    QString text = drawn.join(u"\r\n"_s) + u'\r';
    if (shownProgressLines > 1)
        text += u"\x1b[%1A"_s.arg(shownProgressLines - 1);
    write(stderr, text);
}

void BRTerminal::endProgress()
{
    if (shownProgressLines == 0)
        return;
    write(stderr, shownProgressLines > 1 ? u"\x1b[J"_s : u"\x1b[K"_s);
    shownProgressLines = 0;
}

QString BRTerminal::progressBar(double done, int width)
{
    const int filled = static_cast<int>(std::clamp(done, 0.0, 1.0) * width);
    // Colour is decoration here: who set NO_COLOR sees the same bar without it.
    const bool hasColor = qEnvironmentVariableIsEmpty("NO_COLOR");
    const QString bar = QString(filled, u'#') + QString(width - filled, u'.');
    return hasColor ? u"[\x1b[36m%1\x1b[0m]"_s.arg(bar) : u"[%1]"_s.arg(bar);
}
