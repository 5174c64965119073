#pragma once

#include "tests/support/Files.h"
#include "tests/support/VirtualDisplay.h"

#include <gtest/gtest.h>

#include <QImage>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <csignal>
#include <functional>
#include <map>
#include <vector>

/// How a program ended and what it wrote.
struct Outcome {
    int status = -1;
    QString output;
    QString errors;
};

/// Environment variables, laid over the ones of the test.
using Variables = std::map<QString, QString>;

/// The real program, with settings and movies of its own.
class CommandLineTest : public testing::Test {
protected:
    /// 320 x 240, shared by all tests.
    static VirtualDisplay &display();

    [[nodiscard]] QString path(const QString &name) const { return _home.filePath(name); }
    /// A line's words, of which "~/" is the test's own folder.
    [[nodiscard]] QStringList words(const char *line) const;

    /// An X11 session on `display()`, unless `variables` says otherwise.
    void prepare(QProcess &process, const Variables &variables = {}) const;
    void start(QProcess &process, const QStringList &arguments,
               const Variables &variables = {}) const;
    static void send(const QProcess &process, int signal);
    static Outcome outcomeOf(QProcess &process);
    [[nodiscard]] Outcome run(const QStringList &arguments, const Variables &variables = {}) const;

    /// Records the whole display for a moment, or what the words say: the movie's folder.
    [[nodiscard]] QString record(const char *more = "--duration 0.1") const;
    /// What `info --json` says.
    [[nodiscard]] QJsonObject infoOf(const QString &movie) const;
    /// Every frame of a movie, as `frames` writes it.
    [[nodiscard]] std::vector<QImage> picturesOf(const QString &movie) const;
    /// For what happens in files, which tell nobody; fails the test after a minute.
    static void waitUntil(const std::function<bool()> &isTrue, const char *what);
    /// The folder of the only movie in `moviesFolder`, once it has frames.
    static QString movieWithFramesIn(const QString &moviesFolder, int frames = 1);

private:
    QTemporaryDir _home;
};
