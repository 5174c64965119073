#pragma once

#include <QFrame>
#include <QPoint>

#include <functional>

class QComboBox;
class QLabel;
class QLineEdit;
class QMenu;
class QPushButton;

/// The floating panel of the screen selection: sizes by number, the sizing mode, presets, and the
/// buttons that end it. It floats over its parent, in which a hand can move it, and is used by keys
/// alone as well. Main thread.
class BRScreenSelectionPanel final : public QFrame {
public:
    /// What its controls do; all are given.
    struct Actions {
        std::function<void()> okButton;
        std::function<void()> cancelButton;
        std::function<void()> setSizeFromFields;
        std::function<void(int tag)> setSizeToPreset;
        std::function<void(int sizing)> selectionSizingChanged;
        /// What a preset's menu item says of itself.
        std::function<QSize(int tag)> sizeOfPreset;
    };

    BRScreenSelectionPanel(Actions actions, const QString &okButtonTitle, QWidget *parent);

    /// 1 fixes the aspect: the fields then have no unit.
    void showSizing(int sizing);
    void showFields(int width, int height);
    /// What was typed and not taken stays so, also when the fields lose the keyboard.
    void forgetEdits();
    /// Cut to whole numbers; 0 for what is no number.
    [[nodiscard]] int widthOfField() const;
    [[nodiscard]] int heightOfField() const;
    /// Where the keyboard goes when it goes to the panel.
    [[nodiscard]] QLineEdit &firstResponder() const { return *widthField; }

protected:
    void paintEvent(QPaintEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QLineEdit *_makeField();
    void _makePresets();
    void _layOut();
    void _commit(QLineEdit &field);

    const Actions _actions;
    QComboBox *const selectionTypePopup;
    QLineEdit *const widthField;
    QLineEdit *const heightField;
    QLabel *const widthSuffixField;
    QLabel *const heightSuffixField;
    QPushButton *const _presetsButton;
    QPushButton *const _cancelButton;
    QPushButton *const okButton;
    QPoint _grabbedAt;
};
