<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="fr">
<context>
    <name></name>
    <message id="BRRecordButtonCaption">
        <source></source>
        <translation>Enregistrer</translation>
    </message>
    <message id="BRSelectButtonCaption">
        <source></source>
        <translation>Sélectionner</translation>
    </message>
    <message id="BRCancelButtonCaption">
        <source></source>
        <translation>Annuler</translation>
    </message>
    <message id="BRScreenSelectionTitle">
        <source></source>
        <translation>Sélection de l’écran</translation>
    </message>
    <message id="BRScreenSelectionWidthLabel">
        <source></source>
        <translation>Largeur :</translation>
    </message>
    <message id="BRScreenSelectionHeightLabel">
        <source></source>
        <translation>Hauteur :</translation>
    </message>
    <message id="BRScreenSelectionPixelSuffix">
        <source></source>
        <translation>px</translation>
    </message>
    <message id="BRScreenSelectionSizingLabel">
        <source></source>
        <translation>Taille :</translation>
    </message>
    <message id="BRScreenSelectionFreeSizing">
        <source></source>
        <translation>Taille libre</translation>
    </message>
    <message id="BRScreenSelectionFixedAspect">
        <source></source>
        <translation>Proportions fixes</translation>
    </message>
    <message id="BRScreenSelectionPresetsTitle">
        <source></source>
        <translation>Préréglages</translation>
    </message>
    <message id="BRScreenSelectionPresetWhole">
        <source></source>
        <translation>Écran entier</translation>
    </message>
    <message id="BRScreenSelectionPreset34">
        <source></source>
        <translation>Trois quarts</translation>
    </message>
    <message id="BRScreenSelectionPreset12">
        <source></source>
        <translation>Moitié</translation>
    </message>
    <message id="BRScreenSelectionPreset14">
        <source></source>
        <translation>Un quart</translation>
    </message>
    <message id="BRScreenSelectionPreset18">
        <source></source>
        <translation>Un huitième</translation>
    </message>
    <message id="BRScreenSelectionPresetSize">
        <extracomment>Name, width and height in pixels</extracomment>
        <source></source>
        <translation>%1 – %2 × %3</translation>
    </message>
    <message id="BRScreenSelectionHint">
        <source></source>
        <translation>Glisser pour sélectionner, Alt+clic pour une fenêtre, flèches pour déplacer</translation>
    </message>
    <message id="BRScreenSelectionViewName">
        <extracomment>For screen readers, as all that end in Name or Description</extracomment>
        <source></source>
        <translation>Zone à enregistrer</translation>
    </message>
    <message id="BRScreenSelectionViewDescription">
        <source></source>
        <translation>%1 sur %2 pixels, à %3 du bord gauche et %4 du bord inférieur</translation>
    </message>
    <message id="BRScreenSelectionWidthName">
        <source></source>
        <translation>Largeur de la zone</translation>
    </message>
    <message id="BRScreenSelectionHeightName">
        <source></source>
        <translation>Hauteur de la zone</translation>
    </message>
    <message id="BRScreenSelectionAspectWidthName">
        <source></source>
        <translation>Terme de largeur des proportions</translation>
    </message>
    <message id="BRScreenSelectionAspectHeightName">
        <source></source>
        <translation>Terme de hauteur des proportions</translation>
    </message>
    <message id="BRCountdownName">
        <extracomment>Seconds</extracomment>
        <source></source>
        <translation>L’enregistrement commence dans %1</translation>
    </message>
    <message id="BRShortcutPickerEmpty">
        <extracomment>No shortcut</extracomment>
        <source></source>
        <translation>Aucun</translation>
    </message>
    <message id="BRShortcutPickerPrompt">
        <source></source>
        <translation>Appuyez sur les touches</translation>
    </message>
    <message id="BRShortcutPickerClear">
        <source></source>
        <translation>Effacer le raccourci</translation>
    </message>
    <message id="BRShortcutPickerNeedsModifier">
        <source></source>
        <translation>Cette touche doit être combinée avec Super, Alt ou Ctrl.</translation>
    </message>
    <message id="BRShortcutPickerReserved">
        <extracomment>The keys</extracomment>
        <source></source>
        <translation>%1 passe à une autre console et n’atteint jamais un programme.</translation>
    </message>
    <message id="BRShortcutPickerNameless">
        <source></source>
        <translation>Cette touche n’a pas de nom à afficher.</translation>
    </message>
</context>
</TS>
