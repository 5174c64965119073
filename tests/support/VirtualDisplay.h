#pragma once

#include "foundation/PXGeometry.h"

#include <QImage>
#include <QProcess>
#include <QString>

#include <memory>

class TestConnection;

/// A private X server without a screen, with its own window manager and compositor if wanted.
/// All of them end with the object. What cannot start throws std::runtime_error.
class VirtualDisplay final {
public:
    enum class Compositor {
        None,
        XRender,
        Glx,
        Fading, ///< Lets windows that come or go fade.
    };
    struct Options {
        bool hasWindowManager = false;
        Compositor compositor = Compositor::None;
        QStringList serverArguments = {}; ///< "-extension", "MIT-SHM", …
    };

    VirtualDisplay(int width, int height);
    VirtualDisplay(int width, int height, const Options &options);
    ~VirtualDisplay();

    /// ":7"; for `DISPLAY` and for whoever opens it.
    [[nodiscard]] const QString &name() const { return _name; }
    [[nodiscard]] qint64 serverProcessId() const { return _server.processId(); }

    /// All pixels of the root window over a connection of its own by the plainest request,
    /// Format_RGB32 with the top byte 255; without the cursor.
    [[nodiscard]] QImage screenshot() const;

    /// Replaces the compositor; returns when the new one has taken over (or the old one is gone).
    void setCompositor(Compositor compositor);
    /// Puts the pointer somewhere, as a program would: without motion of a device.
    void warpPointer(int x, int y) const;
    /// Moves it as a mouse does.
    void movePointerBy(int dx, int dy) const;
    /// Another size of the screen, through RandR.
    void resize(int width, int height) const;
    /// Another place of the main display on the screen, which keeps its size: nothing is painted.
    void moveMainDisplay(const PXPixelRect &place) const;
    /// Ends the server as a crash would; returns when it has gone.
    void kill();

private:
    void _start(QProcess &process, const QString &program, const QStringList &arguments);
    void _startWindowManager();
    void _setMode(const PXPixelRect &place, bool resizesScreen) const;

    QProcess _server;
    QProcess _windowManager;
    QProcess _compositor;
    QString _name;
    std::unique_ptr<TestConnection> _connection;
};
