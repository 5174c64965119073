<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en">
<context>
    <name></name>
    <message id="BRRecordButtonCaption">
        <source></source>
        <translation>Record</translation>
    </message>
    <message id="BRSelectButtonCaption">
        <source></source>
        <translation>Select</translation>
    </message>
    <message id="BRCancelButtonCaption">
        <source></source>
        <translation>Cancel</translation>
    </message>
    <message id="BRScreenSelectionTitle">
        <source></source>
        <translation>Screen Selection</translation>
    </message>
    <message id="BRScreenSelectionWidthLabel">
        <source></source>
        <translation>Width:</translation>
    </message>
    <message id="BRScreenSelectionHeightLabel">
        <source></source>
        <translation>Height:</translation>
    </message>
    <message id="BRScreenSelectionPixelSuffix">
        <source></source>
        <translation>px</translation>
    </message>
    <message id="BRScreenSelectionSizingLabel">
        <source></source>
        <translation>Size:</translation>
    </message>
    <message id="BRScreenSelectionFreeSizing">
        <source></source>
        <translation>Free size</translation>
    </message>
    <message id="BRScreenSelectionFixedAspect">
        <source></source>
        <translation>Fixed aspect ratio</translation>
    </message>
    <message id="BRScreenSelectionPresetsTitle">
        <source></source>
        <translation>Presets</translation>
    </message>
    <message id="BRScreenSelectionPresetWhole">
        <source></source>
        <translation>Whole Display</translation>
    </message>
    <message id="BRScreenSelectionPreset34">
        <source></source>
        <translation>Three Quarters</translation>
    </message>
    <message id="BRScreenSelectionPreset12">
        <source></source>
        <translation>Half</translation>
    </message>
    <message id="BRScreenSelectionPreset14">
        <source></source>
        <translation>A Quarter</translation>
    </message>
    <message id="BRScreenSelectionPreset18">
        <source></source>
        <translation>An Eighth</translation>
    </message>
    <message id="BRScreenSelectionPresetSize">
        <extracomment>Name, width and height in pixels</extracomment>
        <source></source>
        <translation>%1 – %2 × %3</translation>
    </message>
    <message id="BRScreenSelectionHint">
        <source></source>
        <translation>Drag to select, Alt-click picks a window, arrow keys move</translation>
    </message>
    <message id="BRScreenSelectionViewName">
        <extracomment>For screen readers, as all that end in Name or Description</extracomment>
        <source></source>
        <translation>Area to record</translation>
    </message>
    <message id="BRScreenSelectionViewDescription">
        <source></source>
        <translation>%1 by %2 pixels, at %3 from the left and %4 from the bottom</translation>
    </message>
    <message id="BRScreenSelectionWidthName">
        <source></source>
        <translation>Width of the area</translation>
    </message>
    <message id="BRScreenSelectionHeightName">
        <source></source>
        <translation>Height of the area</translation>
    </message>
    <message id="BRScreenSelectionAspectWidthName">
        <source></source>
        <translation>Width term of the aspect ratio</translation>
    </message>
    <message id="BRScreenSelectionAspectHeightName">
        <source></source>
        <translation>Height term of the aspect ratio</translation>
    </message>
    <message id="BRCountdownName">
        <extracomment>Seconds</extracomment>
        <source></source>
        <translation>Recording starts in %1</translation>
    </message>
    <message id="BRShortcutPickerEmpty">
        <extracomment>No shortcut</extracomment>
        <source></source>
        <translation>None</translation>
    </message>
    <message id="BRShortcutPickerPrompt">
        <source></source>
        <translation>Press the keys</translation>
    </message>
    <message id="BRShortcutPickerClear">
        <source></source>
        <translation>Clear shortcut</translation>
    </message>
    <message id="BRShortcutPickerNeedsModifier">
        <source></source>
        <translation>This key needs Super, Alt or Ctrl with it.</translation>
    </message>
    <message id="BRShortcutPickerReserved">
        <extracomment>The keys</extracomment>
        <source></source>
        <translation>%1 switches to another console and never reaches a program.</translation>
    </message>
    <message id="BRShortcutPickerNameless">
        <source></source>
        <translation>This key has no name to show.</translation>
    </message>
</context>
</TS>
