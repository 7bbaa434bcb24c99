#include "ui/pages/indexsettingsdialog.h"

#include "core/pathutil.h"
#include "search/indexroots.h"
#include "search/searchsettings.h"
#include "ui/common/appnoticedialog.h"
#include "ui/common/apptooltip.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/theme.h"
#include "ui/common/titledcard.h"
#include "ui/common/widgetstyle.h"
#include "ui/pages/indexsettingsdialog/wrapcheckbox.h"

#include <QComboBox>
#include <QDir>
#include <QFileDialog>
#include <QGridLayout>
#include <QListWidget>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QVBoxLayout>

using core::AppMode;
using ui::common::addTitledCard;
using ui::common::AppNoticeDialog;
using ui::common::AppToolTip;
using ui::common::ThemeColors;
namespace metrics = ui::common::metrics;

namespace {

constexpr int kDialogWidth = 640;
constexpr int kMinDialogHeight = 560;
constexpr int kMaxDialogHeight = 880;
constexpr int kBelowWindow = 40; ///< By which the dialog is lower than the window behind it.
constexpr int kListRows = 3;

struct TypeGroup
{
    const char *objectName;
    const char *title;      ///< Takes the patterns as %1; UTF-8.
    const char *extensions; ///< Separated by blanks.
};

const TypeGroup kTypeGroups[] = {
    {"DocumentTypesBox", "办公文档  —  %1",
     "doc docx xls xlsx ppt pptx pdf rtf csv txt odt ods odp ofd epub wps et dps md"},
    {"TextTypesBox", "纯文本/配置  —  %1", "rst xml json log ini conf yaml yml toml sql"},
    {"CodeTypesBox", "代码文件  —  %1",
     "sh py js ts java jsx cpp c h hpp go rs rb php lua tsx html"},
};

QStringList extensionsOf(const TypeGroup &group)
{
    return QString::fromLatin1(group.extensions).split(QLatin1Char(' '));
}

QString patternsOf(const TypeGroup &group)
{
    QStringList patterns;
    const QStringList extensions = extensionsOf(group);
    for (const QString &extension : extensions)
        patterns.append(QStringLiteral("*.%1").arg(extension));
    return patterns.join(QStringLiteral(", "));
}

QString textLengthName(int bytes)
{
    if (bytes >= searchsettings::textLengths().constLast())
        return IndexSettingsDialog::tr("全文（最多 16 MB）");
    return QStringLiteral("%1 KB").arg(bytes / 1024);
}

/// Selects the item with that data. A value that the list doesn't offer gets an item of its own,
/// so that an untouched setting stays as it is.
void selectValue(QComboBox *combo, int value, const QString &otherText)
{
    if (combo->findData(value) < 0)
        combo->addItem(otherText, value);
    combo->setCurrentIndex(combo->findData(value));
}

} // namespace

IndexSettingsDialog::IndexSettingsDialog(AppMode mode,
                                         const core::controllers::search::SearchRuntimePaths &paths,
                                         QWidget *parent)
    : FramelessDialog(parent, Sizing::Resizable)
    , m_mode(mode)
    , m_paths(paths)
{
    setObjectName(QStringLiteral("IndexSettingsDialog"));
    setWindowTitle(tr("索引设置"));

    auto *page = new QWidget;
    auto *column = new QVBoxLayout(page);
    column->setContentsMargins(0, 0, metrics::kFieldGap, 0);
    column->setSpacing(metrics::kCardGap);
    m_roots = addDirectoryCard(column, QStringLiteral("IndexRoots"), tr("索引根目录"),
                               mode == AppMode::livecd
                                   ? tr("默认索引目标系统中的用户目录（来自 /live_target）。")
                                   : tr("默认索引当前用户目录。"),
                               tr("选择索引根目录"));
    m_excludes = addDirectoryCard(column, QStringLiteral("ExcludeDirs"), tr("排除目录"),
                                  tr("匹配目录名或绝对路径。"), tr("选择排除目录"));
    buildTypesCard(column);
    buildAdvancedCard(column);
    column->addStretch(1);

    auto *scroll = new QScrollArea(this);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setWidgetResizable(true);
    scroll->setWidget(page);
    contentLayout()->addWidget(scroll, 1);

    QPushButton *cancel = addButton(tr("取消"));
    cancel->setObjectName(QStringLiteral("IndexSettingsCancel"));
    QPushButton *accept = addButton(tr("确定"), QStringLiteral("primary"));
    accept->setObjectName(QStringLiteral("IndexSettingsAccept"));
    connect(cancel, &QPushButton::clicked, this, &QDialog::reject);
    connect(accept, &QPushButton::clicked, this, &QDialog::accept);
    const int room = parent ? parent->window()->height() - kBelowWindow : kMinDialogHeight;
    resize(kDialogWidth, qBound(kMinDialogHeight, room, kMaxDialogHeight));
    setSettings(Settings());
}

QListWidget *IndexSettingsDialog::addDirectoryCard(QVBoxLayout *column, const QString &name,
                                                   const QString &title, const QString &hint,
                                                   const QString &dialogTitle)
{
    QVBoxLayout *card = addTitledCard(column, title, hint);
    auto *list = new QListWidget(this);
    list->setObjectName(name + QStringLiteral("List"));
    list->setSelectionMode(QAbstractItemView::ExtendedSelection);
    list->setTextElideMode(Qt::ElideMiddle);
    list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    list->setFixedHeight(kListRows * metrics::rowControlHeight() + metrics::kFieldGap);
    card->addWidget(list);

    auto *add = new QPushButton(tr("添加"), this);
    add->setObjectName(name + QStringLiteral("Add"));
    auto *remove = new QPushButton(tr("移除"), this);
    remove->setObjectName(name + QStringLiteral("Remove"));
    remove->setEnabled(false);
    auto *buttons = new QHBoxLayout;
    buttons->setSpacing(metrics::kButtonGap);
    for (QPushButton *button : {add, remove}) {
        button->setAutoDefault(false);
        button->setProperty("compact", true);
        buttons->addWidget(button);
    }
    buttons->addStretch(1);
    card->addLayout(buttons);

    connect(add, &QPushButton::clicked, this,
            [this, list, dialogTitle] { chooseDirectory(list, dialogTitle); });
    connect(remove, &QPushButton::clicked, list, [list] {
        qDeleteAll(list->selectedItems());
        list->clearSelection();
    });
    connect(list, &QListWidget::itemSelectionChanged, remove,
            [list, remove] { remove->setEnabled(!list->selectedItems().isEmpty()); });
    return list;
}

void IndexSettingsDialog::buildTypesCard(QVBoxLayout *column)
{
    QVBoxLayout *card = addTitledCard(column, tr("全文检索类型"),
                                      tr("按类别选择需要提取文本内容建立全文索引的文件类型。"));
    for (const TypeGroup &group : kTypeGroups) {
        auto *box = new WrapCheckBox(QString::fromUtf8(group.title).arg(patternsOf(group)), this);
        box->setObjectName(QString::fromLatin1(group.objectName));
        card->addWidget(box);
        m_typeBoxes.append(box);
    }
    m_moreTextTypes = new WrapCheckBox(
        tr("更多文本类型  —  %1")
            .arg(QStringLiteral("*.htm, *.html, *.eml, *.mbox, *.srt, *.log, *.zip")),
        this);
    m_moreTextTypes->setObjectName(QStringLiteral("MoreTextTypesBox"));
    AppToolTip::install(
        m_moreTextTypes, QString(),
        tr("网页、邮件（含附件名）、字幕、日志的文字，以及 zip 压缩包内的文件名。"));
    card->addWidget(m_moreTextTypes);
}

void IndexSettingsDialog::buildAdvancedCard(QVBoxLayout *column)
{
    QVBoxLayout *card = addTitledCard(column, tr("高级设置"));
    auto *grid = new QGridLayout;
    grid->setHorizontalSpacing(metrics::kFieldGap);
    grid->setVerticalSpacing(metrics::kFieldGap);
    grid->setColumnStretch(2, 1);
    const auto addRow = [&](const QString &text, const QString &name, const QString &tipTitle,
                            const QString &tip) {
        const int row = grid->rowCount();
        auto *label = new QLabel(text, this);
        auto *combo = new QComboBox(this);
        combo->setObjectName(name);
        combo->setSizeAdjustPolicy(QComboBox::AdjustToContents);
        combo->setMinimumWidth(ThemeColors::current().fontPx(120));
        grid->addWidget(label, row, 0);
        grid->addWidget(combo, row, 1);
        AppToolTip::install(label, tipTitle, tip);
        AppToolTip::install(combo, tipTitle, tip);
        return combo;
    };
    m_textLength = addRow(
        tr("每个文档的索引长度:"), QStringLiteral("TextLengthCombo"), tr("每个文档的索引长度"),
        tr("全文检索只能找到索引长度以内的文字。越长找到的越多，建立索引越慢，索引文件越大。"
           "更改在下次构建索引时生效。"));
    for (const int bytes : searchsettings::textLengths())
        m_textLength->addItem(textLengthName(bytes), bytes);
    m_depth = addRow(tr("监控深度:"), QStringLiteral("WatchDepthCombo"), tr("监控深度"),
                     tr("程序会监控目录的文件变化以便更新索引，太深的目录会占用很多系统资源。"));
    for (const int depth : {3, 5, 8, 10})
        m_depth->addItem(tr("%1 层").arg(depth), depth);
    m_depth->addItem(tr("无限"), 0);
    // The watcher stores paths as they are here, which aren't those of the target system.
    m_depth->setEnabled(m_mode != AppMode::livecd);

    m_interval = addRow(tr("增量间隔:"), QStringLiteral("IncrementalIntervalCombo"), tr("增量间隔"),
                        tr("每隔指定时间自动增量刷新索引，不会清空已有索引；主要用于补扫没有被自动"
                           "监控到的目录变化。"));
    for (const int hours : {6, 12, 24})
        m_interval->addItem(QStringLiteral("%1h").arg(hours), hours);
    m_interval->addItem(tr("手动"), 0);
    card->addLayout(grid);

    m_autoRebuild = new QCheckBox(tr("索引失效时自动重建"), this);
    m_autoRebuild->setObjectName(QStringLiteral("AutoRebuildBox"));
    AppToolTip::install(m_autoRebuild, QString(),
                        tr("索引数据库文件如果被误删、报错等情况，自动重新创建索引"));
    card->addWidget(m_autoRebuild);
}

void IndexSettingsDialog::chooseDirectory(QListWidget *list, const QString &dialogTitle)
{
    const QString start = m_mode == AppMode::livecd ? m_paths.targetRoot : m_paths.primaryHome;
    addPathToList(list, QFileDialog::getExistingDirectory(this, dialogTitle, start));
}

void IndexSettingsDialog::addPathToList(QListWidget *list, const QString &path)
{
    if (path.trimmed().isEmpty())
        return;
    const QString clean = search::cleanRoot(path);
    if (listToStringList(list).contains(clean))
        return;
    // Plain names, which only stored settings bring, match anywhere.
    if (m_mode == AppMode::livecd && clean.contains(QLatin1Char('/')) &&
        !core::isInside(clean, m_paths.targetRoot)) {
        AppNoticeDialog::showWarning(this, tr("目录不可用"),
                                     tr("恢复环境模式下只能索引 /live_target 里的目标系统目录。"));
        return;
    }
    auto *item = new QListWidgetItem(clean, list);
    item->setToolTip(QStringLiteral("<qt>%1</qt>").arg(clean.toHtmlEscaped()));
}

QStringList IndexSettingsDialog::listToStringList(const QListWidget *list)
{
    QStringList result;
    for (int row = 0; row < list->count(); ++row)
        result.append(list->item(row)->text());
    return result;
}

IndexSettingsDialog::Settings IndexSettingsDialog::settings() const
{
    Settings result;
    result.roots = listToStringList(m_roots);
    result.excludeDirs = listToStringList(m_excludes);
    for (int i = 0; i < m_typeBoxes.size(); ++i) {
        if (m_typeBoxes.at(i)->isChecked())
            result.ftsExtensions += extensionsOf(kTypeGroups[i]);
    }
    result.moreTextTypes = m_moreTextTypes->isChecked();
    result.indexedTextBytes = m_textLength->currentData().toInt();
    result.autoRebuild = m_autoRebuild->isChecked();
    result.inotifyMaxDepth = m_depth->currentData().toInt();
    result.incrementalIntervalHours = m_interval->currentData().toInt();
    return result;
}

void IndexSettingsDialog::setSettings(const Settings &settings)
{
    m_roots->clear();
    m_excludes->clear();
    for (const QString &root : settings.roots)
        addPathToList(m_roots, root);
    for (const QString &directory : settings.excludeDirs)
        addPathToList(m_excludes, directory);
    for (int i = 0; i < m_typeBoxes.size(); ++i) {
        const QStringList extensions = extensionsOf(kTypeGroups[i]);
        bool any = false;
        for (const QString &extension : extensions)
            any = any || settings.ftsExtensions.contains(extension, Qt::CaseInsensitive);
        m_typeBoxes.at(i)->setChecked(any);
    }
    m_moreTextTypes->setChecked(settings.moreTextTypes);
    selectValue(m_textLength, settings.indexedTextBytes, textLengthName(settings.indexedTextBytes));
    m_autoRebuild->setChecked(settings.autoRebuild);
    selectValue(m_depth, settings.inotifyMaxDepth,
                settings.inotifyMaxDepth < 0 ? tr("不监控")
                                             : tr("%1 层").arg(settings.inotifyMaxDepth));
    selectValue(m_interval, settings.incrementalIntervalHours,
                QStringLiteral("%1h").arg(settings.incrementalIntervalHours));
}
