#include "overlays/BRScreenSelectionPanel.h"

#include <QComboBox>
#include <QGridLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPainter>
#include <QPushButton>
#include <QRegularExpressionValidator>
#include <QVBoxLayout>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr int kFieldDigits = 6;
constexpr int kMargin = 16;
constexpr int kCornerRadius = 8;
constexpr int kHintWidth = 240;
constexpr double kHintSize = 0.85; ///< Of the usual text.

struct Preset {
    int tag;
    const char *titleKey;
};
constexpr int kWholeDisplay = 11;
constexpr std::array<Preset, 5> kPresets = {{{kWholeDisplay, "BRScreenSelectionPresetWhole"},
                                             {34, "BRScreenSelectionPreset34"},
                                             {12, "BRScreenSelectionPreset12"},
                                             {14, "BRScreenSelectionPreset14"},
                                             {18, "BRScreenSelectionPreset18"}}};

QLabel *makeLabel(const char *key, QWidget *buddy)
{
    auto *label = new QLabel(qtTrId(key));
    label->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    label->setBuddy(buddy);
    return label;
}

QLabel *makeSuffix()
{
    auto *suffix = new QLabel(qtTrId("BRScreenSelectionPixelSuffix"));
    // Nothing jumps when the aspect takes the units away.
    QSizePolicy policy = suffix->sizePolicy();
    policy.setRetainSizeWhenHidden(true);
    suffix->setSizePolicy(policy);
    return suffix;
}

QPushButton *makeButton(const QString &title)
{
    auto *button = new QPushButton(title);
    button->setAutoDefault(true); // Return presses the one that has the keyboard.
    return button;
}

int numberOf(const QLineEdit &field)
{
    return static_cast<int>(std::floor(field.text().replace(u',', u'.').toDouble()));
}

} // namespace

BRScreenSelectionPanel::BRScreenSelectionPanel(Actions actions, const QString &okButtonTitle,
                                               QWidget *parent)
    : QFrame(parent),
      _actions(std::move(actions)),
      selectionTypePopup(new QComboBox),
      widthField(_makeField()),
      heightField(_makeField()),
      widthSuffixField(makeSuffix()),
      heightSuffixField(makeSuffix()),
      _presetsButton(makeButton(qtTrId("BRScreenSelectionPresetsTitle"))),
      _cancelButton(makeButton(qtTrId("BRCancelButtonCaption"))),
      okButton(makeButton(okButtonTitle))
{
    setAccessibleName(qtTrId("BRScreenSelectionTitle"));
    selectionTypePopup->addItem(qtTrId("BRScreenSelectionFreeSizing"), 0);
    selectionTypePopup->addItem(qtTrId("BRScreenSelectionFixedAspect"), 1);
    _makePresets();
    okButton->setDefault(true);
    _layOut();
    connect(selectionTypePopup, &QComboBox::activated, this,
            [this] { _actions.selectionSizingChanged(selectionTypePopup->currentData().toInt()); });
    connect(okButton, &QPushButton::clicked, this, [this] { _actions.okButton(); });
    connect(_cancelButton, &QPushButton::clicked, this, [this] { _actions.cancelButton(); });
}

QLineEdit *BRScreenSelectionPanel::_makeField()
{
    auto *field = new QLineEdit;
    static const QRegularExpression number(u"\\d{0,%1}([.,]\\d{0,2})?"_s.arg(kFieldDigits));
    field->setValidator(new QRegularExpressionValidator(number, field));
    field->setAlignment(Qt::AlignRight);
    field->installEventFilter(this);
    connect(field, &QLineEdit::editingFinished, this, [this, field] { _commit(*field); });
    return field;
}

void BRScreenSelectionPanel::_makePresets()
{
    auto *menu = new QMenu(_presetsButton);
    for (const Preset &preset : kPresets) {
        const QSize size = _actions.sizeOfPreset(preset.tag);
        menu->addAction(qtTrId("BRScreenSelectionPresetSize")
                            .arg(qtTrId(preset.titleKey), QString::number(size.width()),
                                 QString::number(size.height())),
                        this, [this, tag = preset.tag] { _actions.setSizeToPreset(tag); });
    }
    _presetsButton->setMenu(menu);
}

void BRScreenSelectionPanel::_layOut()
{
    auto *title = new QLabel(qtTrId("BRScreenSelectionTitle"));
    QFont bold = title->font();
    bold.setBold(true);
    title->setFont(bold);
    title->setAlignment(Qt::AlignCenter);
    auto *hint = new QLabel(qtTrId("BRScreenSelectionHint"));
    QFont small = hint->font();
    small.setPointSizeF(small.pointSizeF() * kHintSize);
    hint->setFont(small);
    hint->setWordWrap(true);
    hint->setAlignment(Qt::AlignCenter);
    hint->setMinimumWidth(kHintWidth);

    auto *grid = new QGridLayout;
    grid->addWidget(makeLabel("BRScreenSelectionSizingLabel", selectionTypePopup), 0, 0);
    grid->addWidget(selectionTypePopup, 0, 1, 1, 2);
    grid->addWidget(makeLabel("BRScreenSelectionWidthLabel", widthField), 1, 0);
    grid->addWidget(widthField, 1, 1);
    grid->addWidget(widthSuffixField, 1, 2);
    grid->addWidget(makeLabel("BRScreenSelectionHeightLabel", heightField), 2, 0);
    grid->addWidget(heightField, 2, 1);
    grid->addWidget(heightSuffixField, 2, 2);
    grid->addWidget(_presetsButton, 3, 1, 1, 2);
    grid->setColumnStretch(1, 1);
    auto *buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(_cancelButton);
    buttons->addWidget(okButton);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(kMargin, kMargin * 3 / 4, kMargin, kMargin);
    layout->setSpacing(kMargin * 3 / 4);
    layout->addWidget(title);
    layout->addLayout(grid);
    layout->addWidget(hint);
    layout->addLayout(buttons);
    QWidget *before = widthField;
    for (QWidget *next : std::initializer_list<QWidget *>{heightField, selectionTypePopup,
                                                          _presetsButton, _cancelButton, okButton})
        setTabOrder(std::exchange(before, next), next);
}

void BRScreenSelectionPanel::showSizing(int sizing)
{
    const bool isFixed = sizing == 1;
    selectionTypePopup->setCurrentIndex(selectionTypePopup->findData(sizing));
    widthSuffixField->setVisible(!isFixed);
    heightSuffixField->setVisible(!isFixed);
    widthField->setAccessibleName(isFixed ? qtTrId("BRScreenSelectionAspectWidthName")
                                          : qtTrId("BRScreenSelectionWidthName"));
    heightField->setAccessibleName(isFixed ? qtTrId("BRScreenSelectionAspectHeightName")
                                           : qtTrId("BRScreenSelectionHeightName"));
}

void BRScreenSelectionPanel::showFields(int width, int height)
{
    const auto show = [](QLineEdit &field, int number) {
        const QString text = QString::number(number);
        if (field.text() != text)
            field.setText(text);
        field.setModified(false);
    };
    show(*widthField, width);
    show(*heightField, height);
}

void BRScreenSelectionPanel::forgetEdits()
{
    widthField->setModified(false);
    heightField->setModified(false);
}

int BRScreenSelectionPanel::widthOfField() const
{
    return numberOf(*widthField);
}

int BRScreenSelectionPanel::heightOfField() const
{
    return numberOf(*heightField);
}

void BRScreenSelectionPanel::_commit(QLineEdit &field)
{
    if (!field.isModified())
        return;
    field.setModified(false);
    _actions.setSizeFromFields();
}

/// Return takes what was typed over; once there is nothing to take, it accepts.
bool BRScreenSelectionPanel::eventFilter(QObject *watched, QEvent *event)
{
    auto *field = qobject_cast<QLineEdit *>(watched);
    if (field == nullptr || event->type() != QEvent::KeyPress)
        return QFrame::eventFilter(watched, event);
    const int key = static_cast<QKeyEvent *>(event)->key();
    if ((key != Qt::Key_Return && key != Qt::Key_Enter) || !field->isModified())
        return QFrame::eventFilter(watched, event);
    _commit(*field);
    field->selectAll();
    return true;
}

void BRScreenSelectionPanel::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape)
        _actions.cancelButton();
    else if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter)
        _actions.okButton();
    // The arrows and all else stay here: below is the view, which would move the selection.
    event->accept();
}

void BRScreenSelectionPanel::mousePressEvent(QMouseEvent *event)
{
    _grabbedAt = event->position().toPoint();
    event->accept();
}

void BRScreenSelectionPanel::mouseMoveEvent(QMouseEvent *event)
{
    if ((event->buttons() & Qt::LeftButton) == 0)
        return;
    const QPoint corner = mapToParent(event->position().toPoint() - _grabbedAt);
    const QSize room = parentWidget()->size() - size();
    move(std::clamp(corner.x(), 0, std::max(room.width(), 0)),
         std::clamp(corner.y(), 0, std::max(room.height(), 0)));
}

void BRScreenSelectionPanel::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(palette().color(QPalette::Mid), 1));
    painter.setBrush(palette().color(QPalette::Window));
    painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), kCornerRadius,
                            kCornerRadius);
}
