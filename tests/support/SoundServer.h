#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

#include <functional>
#include <memory>
#include <ostream>
#include <vector>

/// A private sound server without hardware. Outputs "real_out" (the default) and "second_out",
/// microphone "mic" (the default), which records what is played to the output "mic_feed"; all of
/// them stereo. Ends with the object. What cannot start, and what pactl cannot do, throws
/// std::runtime_error.
class SoundServer final {
public:
    enum class Kind { PulseAudio, PipeWire };

    /// Those that can be started here: on a user's desktop there may be only one of them.
    static std::vector<Kind> installed();

    /// PulseAudio runs the scripts in `dropInFolder` at each start. PipeWire has its own place.
    explicit SoundServer(Kind kind, const QString &dropInFolder = {});
    ~SoundServer();

    /// "unix:/…/native"; for PULSE_SERVER and for whoever opens it.
    [[nodiscard]] const QString &name() const { return _name; }
    /// For programs that shall use it.
    [[nodiscard]] const QProcessEnvironment &environment() const { return _environment; }

    /// Ends it as a crash would; returns when it has gone.
    void kill();
    /// A new one in its place, which knows nothing of what was loaded.
    void start();
    /// It hangs until `resume()`.
    void suspend() const;
    void resume() const;

    /// What pactl prints.
    QString pactl(const QStringList &arguments) const; // NOLINT(modernize-use-nodiscard)
    /// Answers the module's number.
    QString load(const QStringList &moduleAndArguments) const;
    void unload(const QString &module) const;

private:
    QProcess &_run(const QString &program, const QStringList &arguments);
    /// Tries until it does not throw any more.
    static void _waitUntil(const std::function<void()> &succeeds);
    static void _waitForSocket(const QString &path);
    void _startPulseAudio();
    void _startPipeWire();
    void _tryToStartPipeWire();
    void _signal(int signal) const;

    const Kind _kind;
    const QString _dropInFolder;
    QTemporaryDir _folder;
    QString _name;
    QProcessEnvironment _environment;
    std::vector<std::unique_ptr<QProcess>> _processes;
};

inline void PrintTo(SoundServer::Kind kind, std::ostream *out)
{
    *out << (kind == SoundServer::Kind::PulseAudio ? "PulseAudio" : "PipeWire");
}
