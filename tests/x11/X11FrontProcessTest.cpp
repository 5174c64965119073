#include "platform/x11/X11Settings.h"
#include "tests/support/PaintedWindow.h"
#include "tests/support/TestConnection.h"
#include "tests/support/WaitUntil.h"
#include "tests/x11/X11Screens.h"

#include <gtest/gtest.h>

#include <atomic>

using namespace Qt::StringLiterals;

namespace {

TEST(X11FrontProcess, FollowsTheActiveWindow)
{
    VirtualDisplay display(640, 480, {.hasWindowManager = true});
    const auto screen = openScreen(display);
    const auto front = valueOf(screen->makeFrontProcess());
    std::atomic<int> switches = 0;
    const PXObservation observation = front->addSwitchedObserver([&] { ++switches; });
    const auto isFront = [&](std::uint32_t window) {
        return waitUntil([&] { return front->frontProcess() == PXProcessSerialNumber{0, window}; });
    };
    EXPECT_EQ(front->frontProcess(), PXProcessSerialNumber());

    const PaintedWindow first(display, {0, 0, 200, 100}, 0x10, PaintedWindow::Kind::Managed);
    front->setFrontProcess({0, first.id()});
    EXPECT_TRUE(isFront(first.id()));
    auto second = std::make_unique<PaintedWindow>(display, PXPixelRect{300, 0, 200, 100}, 0x20,
                                                  PaintedWindow::Kind::Managed);
    const std::uint32_t gone = second->id();
    front->setFrontProcess({0, gone});
    EXPECT_TRUE(isFront(gone));
    EXPECT_GE(switches, 2);
    front->setFrontProcess({0, first.id()});
    EXPECT_TRUE(isFront(first.id()));
    second.reset();
    front->setFrontProcess({0, gone});
    front->setFrontProcess({});
    // The window manager asks for no more than there is, and the last one stays.
    EXPECT_TRUE(isFront(first.id()));
}

/// XSETTINGS bytes, little-endian, that hold a text, a colour and then the number.
QByteArray settings()
{
    QByteArray bytes("\0\0\0\0"
                     "\1\0\0\0"
                     "\3\0\0\0",
                     12);
    bytes.append("\1\0\5\0"
                 "Name1\0\0\0"
                 "\0\0\0\0"
                 "\3\0\0\0"
                 "abc\0",
                 24);
    bytes.append("\2\0\4\0"
                 "Name"
                 "\0\0\0\0"
                 "\1\0\2\0\3\0\4\0",
                 20);
    bytes.append("\0\0\6\0"
                 "Number\0\0"
                 "\0\0\0\0"
                 "\7\0\0\0",
                 20);
    return bytes;
}

std::optional<std::int32_t> numberIn(const QByteArray &bytes)
{
    return X11Settings::integer(
        std::as_bytes(std::span(bytes.constData(), static_cast<std::size_t>(bytes.size()))),
        "Number");
}

TEST(X11Settings, AreReadFromWhateverBytesThereAre)
{
    const QByteArray whole = settings();
    EXPECT_EQ(numberIn(whole), 7);
    EXPECT_EQ(numberIn(QByteArray("\1\0\0\0"
                                  "\0\0\0\1"
                                  "\0\0\0\1"
                                  "\0\0\0\6"
                                  "Number\0\0"
                                  "\0\0\0\0"
                                  "\xFF\xFF\xFF\xFE",
                                  32)),
              -2); // The other order of bytes.
    for (qsizetype size = 0; size < whole.size(); ++size)
        EXPECT_EQ(numberIn(whole.first(size)), std::nullopt) << size;
    struct Damage {
        const char *name;
        qsizetype place;
        char value;
    };
    const Damage damages[] = {
        {"otherOrder", 0, 1},       {"noSettings", 8, 0},      {"fewerSettings", 8, 2},
        {"unknownKind", 12, 3},     {"nameTooLong", 15, 0x7F}, {"textTooLong", 31, -1},
        {"nameOfAnother", 64, 'X'}, {"notANumber", 56, 1},
    };
    for (const Damage &damage : damages) {
        QByteArray bytes = whole;
        bytes[damage.place] = damage.value;
        EXPECT_EQ(numberIn(bytes), std::nullopt) << damage.name;
    }
}

TEST(X11Settings, SayWhetherTheUserWantsLessMotion)
{
    VirtualDisplay display(320, 240);
    const auto screen = openScreen(display);
    const auto server = valueOf(screen->makeWindowServer());
    EXPECT_FALSE(server->prefersReducedMotion());
    const TestConnection daemon(display.name());
    const PaintedWindow window(display, {0, 0, 1, 1});
    const auto setAnimations = [&](char value) {
        QByteArray bytes("\0\0\0\0"
                         "\1\0\0\0"
                         "\1\0\0\0"
                         "\0\0\x14\0"
                         "Gtk/EnableAnimations"
                         "\0\0\0\0",
                         40);
        bytes.append(value).append("\0\0\0", 3);
        const xcb_atom_t property = daemon.atom("_XSETTINGS_SETTINGS");
        xcb_change_property(daemon.get(), XCB_PROP_MODE_REPLACE, window.id(), property, property, 8,
                            static_cast<std::uint32_t>(bytes.size()), bytes.constData());
        xcb_set_selection_owner(daemon.get(), window.id(), daemon.atom("_XSETTINGS_S0"),
                                XCB_CURRENT_TIME);
        daemon.sync();
    };
    setAnimations(0);
    EXPECT_TRUE(server->prefersReducedMotion());
    setAnimations(1);
    EXPECT_FALSE(server->prefersReducedMotion());
}

} // namespace
