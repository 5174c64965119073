#include "app/BRFactoryDefaults.h"

#include "app/BRApplicationSupport.h"
#include "foundation/BRLog.h"
#include "foundation/PXColor.h"
#include "foundation/PXDefaults.h"
#include "foundation/PXPropertyList.h"
#include "foundation/PXResources.h"
#include "input/PXShortcut.h"

#include <cstdint>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr std::uint32_t kKeyCodeOf2 = 19;

QByteArray grey(float white, float alpha)
{
    return PXColor::calibratedWhite(white, alpha).archivedData();
}

QVariantMap shortcut(const QString &name, std::uint32_t modifiers, std::uint32_t keyCode,
                     const QString &characters)
{
    return PXShortcut(name, modifiers, keyCode, characters).dictionary();
}

/// Moving the cursor in a text is nothing that a viewer wants to see.
QVariantList keyboardEventExceptions()
{
    // Left, up, right, down, with the control characters that stand for the arrows.
    constexpr std::pair<std::uint32_t, char16_t> kArrows[]
        = {{123, 28}, {126, 30}, {124, 29}, {125, 31}};
    QVariantList exceptions;
    for (const std::uint32_t modifiers :
         {std::uint32_t{PXModifierCommand}, std::uint32_t{PXModifierOption},
          PXModifierShift | PXModifierOption}) {
        for (const auto &[keyCode, character] : kArrows)
            exceptions.append(shortcut({}, modifiers, keyCode, QString(QChar(character))));
    }
    return exceptions;
}

QString moviesFolder()
{
    const QString name = u"Movies"_s;
    // Where its parent cannot be made it is still the folder; whoever records into it hears why.
    return BRApplicationSupport::pathInApplicationSupportFolder(name).value_or(
        BRApplicationSupport::applicationSupportFolder() + u'/' + name);
}

// Of Linux alone, as is "showCursorHighlight": system audio comes from the driver, else from the
// monitor of the output in use.
constexpr int kDriverElseMonitor = 0;

constexpr const char16_t *kRenamedKeys[][2] = {
    {u"keyboardShortcutExceptions", u"keyboardEventExceptions"},
    {u"keyboardShortcutFillColor", u"keyboardEventBackgroundColor"},
    {u"keyboardShortcutDuration", u"keyboardEventDuration"},
    {u"keyboardShortcutSize", u"keyboardEventTextSize"},
    {u"keyboardShortcutPosition", u"keyboardEventPosition"},
};

} // namespace

namespace BRFactoryDefaults {

std::vector<Entry> table()
{
    return {
        {u"cameraMode"_s, 0},
        {u"cursorCameraWidth"_s, 640},
        {u"cursorCameraHeight"_s, 480},
        {u"showCameraBounds"_s, true},
        {u"captureRate"_s, 30},
        {u"captureScale"_s, 100.0},
        {u"recordSystemAudio"_s, true},
        {u"recordMicrophoneInput"_s, false},
        {u"screenSelectionWidth"_s, 640},
        {u"screenSelectionHeight"_s, 480},
        {u"screenSelectionSizing"_s, 0},
        {u"showMouseCursor"_s, true},
        {u"showMouseClicks"_s, false},
        {u"mouseClickFillColor"_s, grey(0.9F, 1)},
        {u"rightMouseClickFillColor"_s, grey(0.7F, 1)},
        {u"mouseClickDuration"_s, 0.3},
        {u"showKeyboardAlways"_s, false},
        {u"showMultipleKeyboardEvents"_s, true},
        {u"showKeyboardCommands"_s, true},
        {u"showKeyboardCommandsSeparately"_s, true},
        {u"showKeyboardCharacters"_s, false},
        {u"showKeyboardOtherKeys"_s, true},
        {u"keyboardEventDuration"_s, 3.0},
        {u"keyboardEventNewLineDelay"_s, 1.5},
        {u"keyboardEventTextSize"_s, 72},
        {u"keyboardEventPosition"_s, 7},
        {u"keyboardEventBackgroundColor"_s, grey(0, 0.8F)},
        {u"keyboardEventTextColor"_s, grey(1, 1)},
        {u"keyboardEventExceptions"_s, keyboardEventExceptions()},
        {u"showMainWindowWhenLaunched"_s, true},
        {u"SUCheckAtStartup"_s, true},
        {u"showStatusItem"_s, true},
        {u"hideDesktop"_s, false},
        {u"hideDesktopWith"_s, 1},
        {u"desktopHidingColor"_s, grey(1, 1)},
        {u"desktopHidingImage"_s, QString()},
        {u"showCountdownBeforeRecording"_s, true},
        {u"optimizeFor"_s, 0},
        {u"lossyLevel"_s, 0},
        {u"showRecordingDurationInMenubar"_s, true},
        {u"showRecordingSizeInMenubar"_s, true},
        {u"moviesFolderPath"_s, moviesFolder()},
        {u"openMovieAfterExporting"_s, true},
        {u"activationShortcut"_s,
         shortcut(u"Activation"_s, PXModifierCommand | PXModifierShift, kKeyCodeOf2, u"2"_s)},
        {u"toggleCameraModeShortcut"_s,
         shortcut(u"Toggle Camera Mode"_s, PXModifierCommand | PXModifierOption | PXModifierShift,
                  kKeyCodeOf2, u"2"_s)},
        {u"didUpdateFromBrimmet"_s, false},
    };
}

PXExpected<void> takeOverOldKeys(PXDefaults &defaults)
{
    PXExpected<void> result;
    const auto keepFirstError = [&result](PXExpected<void> step) {
        if (!step && result)
            result = std::move(step);
    };
    const QString shown = u"showKeyboardShortcuts"_s;
    if (defaults.persistentValue(shown).isValid()) {
        const bool isShown = defaults.boolValue(shown);
        keepFirstError(defaults.setValue(u"showKeyboardCommands"_s, isShown));
        keepFirstError(defaults.setValue(u"showKeyboardCharacters"_s, false));
        keepFirstError(defaults.setValue(u"showKeyboardOtherKeys"_s, isShown));
        keepFirstError(defaults.removeValue(shown));
    }
    for (const auto &[oldKey, newKey] : kRenamedKeys) {
        const QString key = QString::fromUtf16(oldKey);
        const QVariant value = defaults.persistentValue(key);
        if (value.isValid()) {
            keepFirstError(defaults.setValue(QString::fromUtf16(newKey), value));
            keepFirstError(defaults.removeValue(key));
        }
    }
    return result;
}

void registerFactoryDefaults(PXDefaults &defaults)
{
    // The program runs on with what is in memory.
    if (const auto taken = takeOverOldKeys(defaults); !taken)
        BRLog(BRLogWarning, PXErrorLine(taken.error()));
    QVariantMap values;
    for (const Entry &entry : table())
        values.insert(entry.key, entry.value);
    values.insert(u"systemAudioSource"_s, kDriverElseMonitor);
    values.insert(u"showCursorHighlight"_s, false);
    if (const auto path = PXResources::pathForResource(u"Defaults"_s, u"plist"_s)) {
        if (const auto shipped = PXPropertyList::read(*path))
            values.insert(*shipped);
        else
            BRLog(BRLogWarning, PXErrorLine(shipped.error()));
    }
    defaults.registerDefaults(values);
}

} // namespace BRFactoryDefaults
