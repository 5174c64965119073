#pragma once

#include <QByteArray>
#include <QProcess>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <unistd.h>

#include <stdexcept>

/// A real terminal of so many columns, where a program's standard error goes.
class Terminal final {
public:
    explicit Terminal(unsigned short columns)
    {
        const winsize size = {24, columns, 0, 0};
        if (openpty(&_ours, &_programs, nullptr, nullptr, &size) != 0)
            throw std::runtime_error("no terminal");
        ::fcntl(_ours, F_SETFD, FD_CLOEXEC);
        ::fcntl(_programs, F_SETFD, FD_CLOEXEC);
    }
    ~Terminal()
    {
        ::close(_ours);
        hangUp();
    }
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    void connectTo(QProcess &process) const
    {
        process.setChildProcessModifier([end = _programs] { ::dup2(end, STDERR_FILENO); });
    }
    /// Where it is asked, too.
    void connectInputTo(QProcess &process) const
    {
        process.setInputChannelMode(QProcess::ForwardedInputChannel);
        process.setChildProcessModifier([end = _programs] {
            ::dup2(end, STDIN_FILENO);
            ::dup2(end, STDERR_FILENO);
        });
    }
    void type(const QByteArray &text) const
    {
        if (::write(_ours, text.constData(), static_cast<std::size_t>(text.size())) != text.size())
            throw std::runtime_error("the terminal takes nothing");
    }
    /// Once the program has its end, so that what is read ends with the program.
    void hangUp()
    {
        if (_programs >= 0)
            ::close(_programs);
        _programs = -1;
    }
    /// Reads until `text` has come, or to the end.
    const QByteArray &readUntil(const QByteArray &text)
    {
        while (!_read.contains(text) && readSome()) { }
        return _read;
    }
    const QByteArray &readToEnd()
    {
        while (readSome()) { }
        return _read;
    }

private:
    bool readSome()
    {
        pollfd file = {_ours, POLLIN, 0};
        char bytes[4096];
        const ssize_t count = poll(&file, 1, 60'000) == 1 ? ::read(_ours, bytes, sizeof bytes) : -1;
        if (count > 0)
            _read.append(bytes, count);
        return count > 0;
    }

    int _ours = -1;
    int _programs = -1;
    QByteArray _read;
};
