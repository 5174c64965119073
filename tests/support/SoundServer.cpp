#include "tests/support/SoundServer.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QStandardPaths>

#include <chrono>
#include <csignal>
#include <stdexcept>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

constexpr int kLongestStartMs = 20'000;
constexpr int kAttempts = 3;

// norewinds: without it a null sink renders up to 2 s ahead and takes it back.
constexpr char kPulseAudioScript[] = R"(
load-module module-stream-restore
load-module module-null-sink sink_name=real_out norewinds=1 sink_properties=device.description=RealOut
load-module module-null-sink sink_name=second_out norewinds=1
load-module module-null-sink sink_name=mic_feed norewinds=1
load-module module-remap-source source_name=mic master=mic_feed.monitor source_properties=device.description=FakeMic
set-default-sink real_out
set-default-source mic
load-module module-native-protocol-unix
)";

} // namespace

std::vector<SoundServer::Kind> SoundServer::installed()
{
    std::vector<Kind> kinds;
    if (!QStandardPaths::findExecutable(u"pulseaudio"_s).isEmpty())
        kinds.push_back(Kind::PulseAudio);
    if (!QStandardPaths::findExecutable(u"pipewire-pulse"_s).isEmpty())
        kinds.push_back(Kind::PipeWire);
    return kinds;
}

SoundServer::SoundServer(Kind kind, const QString &dropInFolder)
    : _kind(kind),
      _dropInFolder(dropInFolder),
      _environment(QProcessEnvironment::systemEnvironment())
{
    const QString folder = _folder.path();
    _name = u"unix:"_s + folder + u"/pulse/native"_s;
    for (const QString &name :
         {u"DISPLAY"_s, u"WAYLAND_DISPLAY"_s, u"XDG_CONFIG_HOME"_s, u"XDG_STATE_HOME"_s,
          u"XDG_DATA_HOME"_s, u"XDG_CACHE_HOME"_s, u"PULSE_RUNTIME_PATH"_s, u"PULSE_STATE_PATH"_s})
        _environment.remove(name);
    _environment.insert(u"XDG_RUNTIME_DIR"_s, folder);
    // For what this process keeps there, and the programs that it starts: tests run side by side.
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(folder));
    _environment.insert(u"HOME"_s, folder);
    _environment.insert(u"LC_ALL"_s, u"C.UTF-8"_s);
    _environment.insert(u"PULSE_SERVER"_s, _name);
    _environment.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, u"unix:path="_s + folder + u"/bus"_s);
    start();
}

SoundServer::~SoundServer()
{
    kill();
}

void SoundServer::start()
{
    if (_kind == Kind::PulseAudio)
        _startPulseAudio();
    else
        _startPipeWire();
}

void SoundServer::kill()
{
    // The last first: the others would complain.
    while (!_processes.empty()) {
        _processes.back()->kill();
        _processes.back()->waitForFinished(-1);
        _processes.pop_back();
    }
}

QProcess &SoundServer::_run(const QString &program, const QStringList &arguments)
{
    _processes.push_back(std::make_unique<QProcess>());
    QProcess &process = *_processes.back();
    process.setProcessEnvironment(_environment);
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(_folder.filePath(program + u".log"_s));
    process.start(program, arguments);
    if (!process.waitForStarted(kLongestStartMs))
        throw std::runtime_error(program.toStdString() + " does not start");
    return process;
}

void SoundServer::_waitUntil(const std::function<void()> &succeeds)
{
    // Nobody tells when a server has begun to listen.
    for (const QDeadlineTimer deadline(kLongestStartMs);;) {
        try {
            return succeeds();
        } catch (const std::runtime_error &) {
            if (deadline.hasExpired())
                throw;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

void SoundServer::_waitForSocket(const QString &path)
{
    _waitUntil([&] {
        if (!QFile::exists(path))
            throw std::runtime_error("waited in vain for " + path.toStdString());
    });
}

void SoundServer::_startPulseAudio()
{
    QFile::remove(_folder.filePath(u"pulse/native"_s));
    QFile script(_folder.filePath(u"default.pa"_s));
    if (!script.open(QIODevice::WriteOnly) || script.write(kPulseAudioScript) < 0)
        throw std::runtime_error("no script for pulseaudio");
    if (!_dropInFolder.isEmpty())
        script.write(".nofail\n.include " + _dropInFolder.toUtf8() + '\n');
    script.close();
    _run(u"pulseaudio"_s,
         {u"-n"_s, u"--daemonize=no"_s, u"--exit-idle-time=-1"_s, u"--use-pid-file=no"_s, u"-F"_s,
          script.fileName()});
    _waitUntil([this] { pactl({u"info"_s}); });
}

void SoundServer::_startPipeWire()
{
    // On a busy machine now and then one of the three misses another, and waits for ever.
    for (int attempt = 1;; ++attempt) {
        try {
            return _tryToStartPipeWire();
        } catch (const std::runtime_error &) {
            if (attempt == kAttempts)
                throw;
            kill();
        }
    }
}

void SoundServer::_tryToStartPipeWire()
{
    for (const QString &socket : {u"bus"_s, u"pipewire-0"_s, u"pulse/native"_s})
        QFile::remove(_folder.filePath(socket));
    // WirePlumber ends without a session bus.
    _run(u"dbus-daemon"_s,
         {u"--session"_s, u"--nofork"_s, u"--nosyslog"_s,
          u"--address="_s + _environment.value(u"DBUS_SESSION_BUS_ADDRESS"_s)});
    _waitForSocket(_folder.filePath(u"bus"_s));
    _run(u"pipewire"_s, {});
    _waitForSocket(_folder.filePath(u"pipewire-0"_s));
    _run(u"wireplumber"_s, {});
    _run(u"pipewire-pulse"_s, {});
    _waitUntil([this] { pactl({u"info"_s}); });
    load({u"module-null-sink"_s, u"sink_name=real_out"_s,
          u"sink_properties=device.description=RealOut"_s});
    load({u"module-null-sink"_s, u"sink_name=second_out"_s});
    load({u"module-null-sink"_s, u"sink_name=mic_feed"_s});
    load({u"module-remap-source"_s, u"source_name=mic"_s, u"master=mic_feed.monitor"_s,
          u"source_properties=device.description=FakeMic"_s});
    // WirePlumber makes the defaults, and may not be there yet.
    _waitUntil([this] {
        pactl({u"set-default-sink"_s, u"real_out"_s});
        pactl({u"set-default-source"_s, u"mic"_s});
        const QString info = pactl({u"info"_s});
        if (!info.contains(u"Sink: real_out\n"_s) || !info.contains(u"Source: mic\n"_s))
            throw std::runtime_error("the defaults are not what was set");
    });
}

QString SoundServer::pactl(const QStringList &arguments) const
{
    QProcess process;
    process.setProcessEnvironment(_environment);
    process.start(u"pactl"_s, arguments);
    if (!process.waitForFinished(kLongestStartMs) || process.exitCode() != 0)
        throw std::runtime_error("pactl " + arguments.join(u' ').toStdString() + ": "
                                 + process.readAllStandardError().toStdString());
    return QString::fromUtf8(process.readAllStandardOutput());
}

QString SoundServer::load(const QStringList &moduleAndArguments) const
{
    return pactl(QStringList{u"load-module"_s} + moduleAndArguments).trimmed();
}

void SoundServer::unload(const QString &module) const
{
    pactl({u"unload-module"_s, module});
}

void SoundServer::_signal(int signal) const
{
    for (const auto &process : _processes)
        ::kill(static_cast<pid_t>(process->processId()), signal);
}

void SoundServer::suspend() const
{
    _signal(SIGSTOP);
}

void SoundServer::resume() const
{
    _signal(SIGCONT);
}
