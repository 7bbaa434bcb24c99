#include "ui/pages/shieldsettingsdialog.h"

#include "ui/common/appnoticedialog.h"
#include "ui/common/apptooltip.h"
#include "ui/common/flowlayout.h"
#include "ui/common/iconwidget.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/styletemplate.h"
#include "ui/common/theme.h"
#include "ui/common/titledcard.h"
#include "ui/common/widgetstyle.h"
#include "ui/pages/shieldsettingsdialog/dirtagwidget.h"

#include <QComboBox>
#include <QFileDialog>
#include <QGridLayout>
#include <QGuiApplication>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>

using shieldsettings::LimitOption;
using shieldsettings::TypeGroup;
using ui::common::addTitledCard;
using ui::common::AppToolTip;
using ui::common::FlowLayout;
using ui::common::IconWidget;
using ui::common::ThemeColors;
namespace metrics = ui::common::metrics;

namespace {

constexpr int kDialogWidth = 680;
constexpr int kButtonWidth = 80; ///< Base pixels, like the next.
constexpr int kComboWidth = 140;
constexpr int kHintSize = 18;
constexpr int kMarkSize = 12;
constexpr int kNoteDelayMs = 300;
/// Beside a tag: paddings of dialog and card, frames, and the scroll bar.
constexpr int kBesideTag = 2 * (metrics::kDialogPadding + metrics::kCardPadding) + 32;

QString cardSheet()
{
    return ui::common::fillStyleTemplate(QStringLiteral(R"qss(
QFrame#DirTag { background: @selectionBackground@; border: 1px solid @infoBorder@;
    border-radius: 8px; }
QPushButton#DirTagRemove { background: transparent; border: 1px solid transparent;
    border-radius: 9px; padding: 0px; min-height: 16px; }
QPushButton#DirTagRemove:vertical { min-width: 0px; }
QPushButton#DirTagRemove:hover, QPushButton#DirTagRemove:pressed { background: @dangerBackground@;
    border-color: @dangerText@; }
QPushButton#DirTagRemove:focus { border-color: @accent@; }
QPushButton#ShieldGroupButton:checked { background: @accentFill@; color: @textOnAccent@;
    border-color: @accentFill@; }
QPushButton#ShieldGroupButton:checked:hover { background: @accentFillHover@; }
QPushButton#ShieldGroupButton:checked:focus { border-color: @textPrimary@; }
)qss"));
}

/// Colour alone does not say which groups are chosen.
void showMark(QPushButton *button, bool checked)
{
    const ThemeColors &colors = ThemeColors::current();
    const QString glyph(QChar(checked ? 0xf00c : 0xf067)); // a tick, a plus
    const QColor ink = checked ? colors.textOnAccent : colors.textMuted;
    button->setIcon(IconWidget::makeFontAwesomePixmap(glyph, ink, kMarkSize));
}

void selectValue(QComboBox *combo, qint64 value)
{
    const int index = combo->findData(value);
    if (index >= 0)
        combo->setCurrentIndex(index);
}

} // namespace

ShieldSettingsDialog::ShieldSettingsDialog(QWidget *parent)
    : FramelessDialog(parent, Sizing::Resizable)
    , m_chooseDirectory([](QWidget *owner, const QString &title) {
        return QFileDialog::getExistingDirectory(owner, title);
    })
{
    setObjectName(QStringLiteral("ShieldSettingsDialog"));
    setWindowTitle(tr("保护设置"));
    // Not the dialog's own sheet: Qt keeps the first one that it has parsed for an unshown window.
    auto *page = new QWidget;
    page->setStyleSheet(cardSheet());
    auto *column = new QVBoxLayout(page);
    column->setContentsMargins(0, 0, metrics::kFieldGap, 0);
    column->setSpacing(metrics::kCardGap);
    buildDirectoryCard(column);
    buildTypeCard(column);
    buildLimitCard(column);
    column->addStretch(1);

    auto *scroll = new QScrollArea(this);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setWidgetResizable(true);
    scroll->setWidget(page);
    contentLayout()->addWidget(scroll, 1);
    buildButtons();
    const QScreen *screen = QGuiApplication::primaryScreen();
    resize(kDialogWidth,
           shieldsettings::dialogHeight(screen ? screen->availableGeometry().height() : -1));
}

void ShieldSettingsDialog::buildDirectoryCard(QBoxLayout *column)
{
    QBoxLayout *card = addTitledCard(column, tr("保护目录"),
                                     tr("在以下目录中被删除的受保护类型文件将自动进入保护。"));
    m_tagArea = new QWidget(this);
    m_tags = new FlowLayout(m_tagArea, 0, metrics::kFieldGap, metrics::kFieldGap);
    card->addWidget(m_tagArea);
    auto *add = new QPushButton(tr("+ 添加目录"), this);
    add->setObjectName(QStringLiteral("ShieldAddDir"));
    add->setProperty("compact", true);
    add->setAutoDefault(false);
    connect(add, &QPushButton::clicked, this, &ShieldSettingsDialog::addDir);
    auto *hint = new IconWidget(IconWidget::Question, this);
    hint->setObjectName(QStringLiteral("ShieldDirHint"));
    hint->setFixedSize(kHintSize, kHintSize);
    hint->setColor(ThemeColors::current().textMuted);
    m_dirHint = hint;
    setSecondNetReason(QString());
    auto *row = new QHBoxLayout;
    row->addWidget(add);
    row->addWidget(hint);
    row->addStretch(1);
    card->addLayout(row);
}

void ShieldSettingsDialog::setSecondNetReason(const QString &reason)
{
    setHoverNote(m_dirHint, {tr("未被拦截的删除"), shieldsettings::secondNetNote(reason)});
}

void ShieldSettingsDialog::buildTypeCard(QBoxLayout *column)
{
    QBoxLayout *card = addTitledCard(column, tr("保护类型"),
                                     tr("选择需要保护的文件类型，鼠标悬停可查看包含的扩展名。"));
    auto *area = new QWidget(this);
    auto *flow = new FlowLayout(area, 0, metrics::kFieldGap, metrics::kFieldGap);
    for (const TypeGroup &group : shieldsettings::typeGroups()) {
        auto *button = new QPushButton(group.name, area);
        button->setObjectName(QStringLiteral("ShieldGroupButton"));
        button->setProperty("exts", group.extensions);
        button->setProperty("compact", true);
        button->setCheckable(true);
        button->setAutoDefault(false);
        showMark(button, false);
        connect(button, &QPushButton::toggled, button,
                [button](bool checked) { showMark(button, checked); });
        setHoverNote(button, {group.name, shieldsettings::extensionNote(group)});
        flow->addWidget(button);
        m_groups.append(button);
    }
    card->addWidget(area);
}

void ShieldSettingsDialog::buildLimitCard(QBoxLayout *column)
{
    QBoxLayout *card = addTitledCard(column, tr("保留策略"));
    auto *grid = new QGridLayout;
    grid->setHorizontalSpacing(metrics::kFieldGap);
    grid->setVerticalSpacing(metrics::kFieldGap);
    grid->setColumnStretch(3, 1);
    m_retention = addLimitRow(grid, "RetentionCombo", shieldsettings::retentionOption());
    m_space = addLimitRow(grid, "SpaceLimitCombo", shieldsettings::spaceOption());
    m_emergency = addLimitRow(grid, "EmergencyCombo", shieldsettings::emergencyOption());
    card->addLayout(grid);
}

QComboBox *ShieldSettingsDialog::addLimitRow(QGridLayout *grid, const char *name,
                                             const LimitOption &option)
{
    auto *label = new QLabel(option.label, this);
    auto *combo = new QComboBox(this);
    combo->setObjectName(QLatin1String(name));
    combo->setMinimumWidth(ThemeColors::current().fontPx(kComboWidth));
    combo->setFocusPolicy(Qt::StrongFocus);
    combo->installEventFilter(this);
    for (const LimitOption::Choice &choice : option.choices)
        combo->addItem(choice.text, choice.value);
    label->setBuddy(combo);
    auto *hint = new IconWidget(IconWidget::Question, this);
    hint->setObjectName(QLatin1String(name) + QStringLiteral("Hint"));
    hint->setFixedSize(kHintSize, kHintSize);
    hint->setColor(ThemeColors::current().textMuted);
    setHoverNote(hint, {option.hintTitle, option.hint});
    combo->setAccessibleDescription(option.hint);
    const int row = grid->rowCount();
    grid->addWidget(label, row, 0);
    grid->addWidget(combo, row, 1);
    grid->addWidget(hint, row, 2);
    return combo;
}

void ShieldSettingsDialog::buildButtons()
{
    QPushButton *cancel = addButton(tr("取消"));
    cancel->setObjectName(QStringLiteral("ShieldCancel"));
    QPushButton *save = addButton(tr("保存"), QStringLiteral("primary"));
    save->setObjectName(QStringLiteral("ShieldSave"));
    for (QPushButton *button : {cancel, save})
        button->setFixedWidth(ThemeColors::current().fontPx(kButtonWidth));
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(save, &QPushButton::clicked, this, &QDialog::accept);
}

void ShieldSettingsDialog::setHoverNote(QWidget *widget, const HoverNote &note)
{
    widget->setAccessibleDescription(note.body);
    widget->installEventFilter(this);
    m_notes.insert(widget, note);
}

bool ShieldSettingsDialog::eventFilter(QObject *watched, QEvent *event)
{
    const auto note = m_notes.constFind(watched);
    if (note != m_notes.constEnd()) {
        if (event->type() == QEvent::Enter)
            AppToolTip::show(static_cast<QWidget *>(watched), note->title, note->body,
                             kNoteDelayMs);
        else if (event->type() == QEvent::Leave)
            AppToolTip::hide();
    } else if (event->type() == QEvent::Wheel) {
        // Who scrolls the cards does not mean the box that passes under the mouse.
        const auto *combo = qobject_cast<QComboBox *>(watched);
        if (combo && !combo->hasFocus()) {
            event->ignore();
            return true;
        }
    }
    return FramelessDialog::eventFilter(watched, event);
}

void ShieldSettingsDialog::rebuildTags()
{
    while (QLayoutItem *item = m_tags->takeAt(0)) {
        // The removed tag's button is still in its click.
        item->widget()->hide();
        item->widget()->deleteLater();
        delete item;
    }
    for (const QString &dir : qAsConst(m_dirs)) {
        auto *tag = new DirTagWidget(dir, m_tagArea);
        tag->setMaximumWidth(kDialogWidth - kBesideTag);
        connect(tag, &DirTagWidget::removeRequested, this, &ShieldSettingsDialog::removeDir);
        m_tags->addWidget(tag);
        tag->show();
    }
    m_tagArea->setVisible(!m_dirs.isEmpty());
    m_tagArea->updateGeometry();
}

void ShieldSettingsDialog::addDir()
{
    const QPointer<ShieldSettingsDialog> self(this);
    const QString dir = m_chooseDirectory(this, tr("选择保护目录"));
    if (!self || dir.isEmpty() || m_dirs.contains(dir))
        return;
    m_dirs.append(dir);
    rebuildTags();
}

void ShieldSettingsDialog::removeDir(const QString &path)
{
    if (m_dirs.size() > 1) {
        m_dirs.removeOne(path);
        rebuildTags();
        return;
    }
    ui::common::AppNoticeDialog::showInfo(this, tr("无法移除"), tr("至少需要保留一个保护目录。"));
}

void ShieldSettingsDialog::setSettings(const Settings &settings)
{
    m_dirs = settings.protectedDirs;
    rebuildTags();
    const QSet<QString> extensions = shieldsettings::lowerCased(settings.protectedExtensions);
    for (int i = 0; i < m_groups.size(); ++i)
        m_groups.at(i)->setChecked(
            shieldsettings::isProtected(shieldsettings::typeGroups().at(i), extensions));
    selectValue(m_retention, settings.retentionDays);
    selectValue(m_space, settings.maxSpaceBytes);
    selectValue(m_emergency, settings.emergencyThresholdBytes);
}

ShieldSettingsDialog::Settings ShieldSettingsDialog::settings() const
{
    QVector<int> checked;
    for (int i = 0; i < m_groups.size(); ++i) {
        if (m_groups.at(i)->isChecked())
            checked.append(i);
    }
    Settings settings;
    settings.protectedDirs = m_dirs;
    settings.protectedExtensions = shieldsettings::extensionsOfGroups(checked);
    settings.retentionDays = m_retention->currentData().toInt();
    settings.maxSpaceBytes = m_space->currentData().toLongLong();
    settings.emergencyThresholdBytes = m_emergency->currentData().toLongLong();
    return settings;
}
