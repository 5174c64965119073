#include "input/view/PXShortcutPickerView.h"

#include "app/PXTranslations.h"
#include "input/BRApplication.h"
#include "tests/input/Recorder.h"
#include "tests/overlays/OverlayDesktop.h"
#include "tests/x11/X11Screens.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QPushButton>
#include <QVBoxLayout>

using namespace Qt::StringLiterals;

namespace {

/// How many keys of a window of ours have gone up.
class Releases final : public QObject {
public:
    Releases() { qApp->installEventFilter(this); }
    int count = 0;

private:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::KeyRelease && watched->isWindowType())
            ++count;
        return false;
    }
};

// Of the keyboard that `Hand` has.
constexpr int kF5 = 71;
constexpr int kSuper = 133;

TEST(PXShortcutPickerView, TakesTheNextCombinationAndNothingElseTakesIt)
{
    const PXTranslations translations;
    const auto platform = openScreen(theDesktop());
    Recorder recorder;
    BRApplication application(*platform, recorder, nullptr);
    application.awakeFromNib();
    QWidget dialog;
    auto *before = new QPushButton(u"Before"_s);
    auto *picker = new PXShortcutPickerView(application.keyboard());
    auto *after = new QPushButton(u"After"_s);
    after->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_A));
    int clicked = 0;
    QObject::connect(after, &QPushButton::clicked, [&] { ++clicked; });
    auto *layout = new QVBoxLayout(&dialog);
    for (QWidget *widget : {static_cast<QWidget *>(before), static_cast<QWidget *>(picker),
                            static_cast<QWidget *>(after)})
        layout->addWidget(widget);
    int changes = 0;
    picker->setShortcutDidChange([&] { ++changes; });
    dialog.show();
    dialog.activateWindow();
    ASSERT_TRUE(waitUntil([&] { return dialog.isActiveWindow(); }));
    const Hand hand(theDesktop().name());
    Releases releases;
    const struct {
        const char *name;
        std::vector<int> held;
        QString shown; ///< Of the shortcut, afterwards.
        QWidget *focused;
        int key;
        bool isChange;
    } rows[] = {
        {"aMenusKey", {Hand::Control}, u"⌃A"_s, picker, Hand::A, true},
        {"plainLetter", {}, u"⌃A"_s, picker, Hand::A, false},
        {"shiftedLetter", {Hand::Shift}, u"⌃A"_s, picker, Hand::A, false},
        {"functionKey", {}, u"F5"_s, picker, kF5, true},
        {"console", {Hand::Control, Hand::Alt}, u"F5"_s, picker, kF5, false},
        {"commandDelete", {kSuper}, u"⌘⌫"_s, picker, Hand::BackSpace, true},
        {"escape", {}, u"⌘⌫"_s, nullptr, Hand::Escape, false},
        {"delete", {}, QString(), picker, Hand::BackSpace, true},
        {"tab", {}, QString(), after, Hand::Tab, false},
        {"shiftTab", {Hand::Shift}, QString(), before, Hand::Tab, false},
    };
    const auto shown
        = [&] { return picker->shortcut() ? picker->shortcut()->displayString() : QString(); };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        picker->setFocus();
        EXPECT_TRUE(picker->text().isEmpty()) << "it waits";
        EXPECT_FALSE(picker->placeholderText().isEmpty());
        const int changesBefore = changes;
        for (const int modifier : row.held)
            hand.keyDown(modifier);
        hand.type(row.key);
        for (const int modifier : row.held)
            hand.keyUp(modifier);
        const int expected = releases.count + static_cast<int>(row.held.size()) + 1;
        EXPECT_TRUE(waitUntil([&] { return releases.count >= expected; }));
        EXPECT_EQ(QApplication::focusWidget(), row.focused);
        EXPECT_EQ(shown(), row.shown);
        EXPECT_EQ(changes - changesBefore, row.isChange ? 1 : 0);
        dialog.setFocus();
    }
    EXPECT_EQ(clicked, 0);
}

} // namespace
