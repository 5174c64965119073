<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de">
<context>
    <name></name>
    <message id="BRRecordButtonCaption">
        <source></source>
        <translation>Aufnehmen</translation>
    </message>
    <message id="BRSelectButtonCaption">
        <source></source>
        <translation>Auswählen</translation>
    </message>
    <message id="BRCancelButtonCaption">
        <source></source>
        <translation>Abbrechen</translation>
    </message>
    <message id="BRScreenSelectionTitle">
        <source></source>
        <translation>Bildschirmauswahl</translation>
    </message>
    <message id="BRScreenSelectionWidthLabel">
        <source></source>
        <translation>Breite:</translation>
    </message>
    <message id="BRScreenSelectionHeightLabel">
        <source></source>
        <translation>Höhe:</translation>
    </message>
    <message id="BRScreenSelectionPixelSuffix">
        <source></source>
        <translation>px</translation>
    </message>
    <message id="BRScreenSelectionSizingLabel">
        <source></source>
        <translation>Größe:</translation>
    </message>
    <message id="BRScreenSelectionFreeSizing">
        <source></source>
        <translation>Freie Größe</translation>
    </message>
    <message id="BRScreenSelectionFixedAspect">
        <source></source>
        <translation>Festes Seitenverhältnis</translation>
    </message>
    <message id="BRScreenSelectionPresetsTitle">
        <source></source>
        <translation>Vorgaben</translation>
    </message>
    <message id="BRScreenSelectionPresetWhole">
        <source></source>
        <translation>Ganzer Bildschirm</translation>
    </message>
    <message id="BRScreenSelectionPreset34">
        <source></source>
        <translation>Drei Viertel</translation>
    </message>
    <message id="BRScreenSelectionPreset12">
        <source></source>
        <translation>Hälfte</translation>
    </message>
    <message id="BRScreenSelectionPreset14">
        <source></source>
        <translation>Ein Viertel</translation>
    </message>
    <message id="BRScreenSelectionPreset18">
        <source></source>
        <translation>Ein Achtel</translation>
    </message>
    <message id="BRScreenSelectionPresetSize">
        <extracomment>Name, width and height in pixels</extracomment>
        <source></source>
        <translation>%1 – %2 × %3</translation>
    </message>
    <message id="BRScreenSelectionHint">
        <source></source>
        <translation>Ziehen wählt aus, Alt-Klick nimmt ein Fenster, Pfeiltasten verschieben</translation>
    </message>
    <message id="BRScreenSelectionViewName">
        <extracomment>For screen readers, as all that end in Name or Description</extracomment>
        <source></source>
        <translation>Aufnahmebereich</translation>
    </message>
    <message id="BRScreenSelectionViewDescription">
        <source></source>
        <translation>%1 mal %2 Pixel, %3 von links und %4 von unten</translation>
    </message>
    <message id="BRScreenSelectionWidthName">
        <source></source>
        <translation>Breite des Bereichs</translation>
    </message>
    <message id="BRScreenSelectionHeightName">
        <source></source>
        <translation>Höhe des Bereichs</translation>
    </message>
    <message id="BRScreenSelectionAspectWidthName">
        <source></source>
        <translation>Breitenwert des Seitenverhältnisses</translation>
    </message>
    <message id="BRScreenSelectionAspectHeightName">
        <source></source>
        <translation>Höhenwert des Seitenverhältnisses</translation>
    </message>
    <message id="BRCountdownName">
        <extracomment>Seconds</extracomment>
        <source></source>
        <translation>Aufnahme beginnt in %1</translation>
    </message>
    <message id="BRShortcutPickerEmpty">
        <extracomment>No shortcut</extracomment>
        <source></source>
        <translation>Keiner</translation>
    </message>
    <message id="BRShortcutPickerPrompt">
        <source></source>
        <translation>Tasten drücken</translation>
    </message>
    <message id="BRShortcutPickerClear">
        <source></source>
        <translation>Kurzbefehl löschen</translation>
    </message>
    <message id="BRShortcutPickerNeedsModifier">
        <source></source>
        <translation>Diese Taste braucht Super, Alt oder Strg dazu.</translation>
    </message>
    <message id="BRShortcutPickerReserved">
        <extracomment>The keys</extracomment>
        <source></source>
        <translation>%1 wechselt zu einer anderen Konsole und erreicht nie ein Programm.</translation>
    </message>
    <message id="BRShortcutPickerNameless">
        <source></source>
        <translation>Diese Taste hat keinen Namen, der gezeigt werden kann.</translation>
    </message>
</context>
</TS>
