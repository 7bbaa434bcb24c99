#include "ui/pages/wechatcleanpage/groupcard.h"

#include "ui/common/apptooltip.h"
#include "ui/common/elidedlabel.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/widgetstyle.h"
#include "ui/pages/wechatcleanpage/cleantexts.h"

#include <QButtonGroup>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPushButton>
#include <QRadioButton>

using ui::common::AppToolTip;
using ui::common::ElidedLabel;
namespace metrics = ui::common::metrics;

namespace wechatclean {

namespace {

constexpr int kBodyPx = 13;
constexpr int kCaptionPx = 12;
constexpr int kPaddingY = 16;
constexpr int kRowPadding = 6; ///< Above and below the texts of a row.

int fileRowHeight()
{
    return qMax(metrics::rowControlHeight(),
                metrics::lineHeight(kBodyPx) + metrics::lineHeight(kCaptionPx)) +
           2 * kRowPadding;
}

int shownRows(const ResultGroup &group)
{
    return qMin(group.shown, group.files.size());
}

bool hasMore(const ResultGroup &group)
{
    return group.files.size() > group.shown;
}

} // namespace

class FileRow : public QWidget
{
    Q_OBJECT

public:
    FileRow(const ResultFile &file, bool isKept, const QStringList &scanDirs, QWidget *parent)
        : QWidget(parent)
        , m_radio(new QRadioButton(this))
        , m_openFolder(new QPushButton(tr("打开所在目录"), this))
        , m_role(new QLabel(this))
    {
        setFixedHeight(fileRowHeight());
        m_radio->setObjectName(QStringLiteral("WechatFileRadio"));
        m_radio->setProperty("filePath", file.path);
        m_radio->setProperty("aliasPaths", file.aliasPaths);
        m_radio->setAccessibleName(file.path);
        m_radio->setChecked(isKept);
        m_openFolder->setObjectName(QStringLiteral("WechatFileOpenFolder"));
        m_openFolder->setProperty("role", QStringLiteral("quiet"));
        m_openFolder->setAccessibleDescription(file.path);
        m_role->setObjectName(QStringLiteral("WechatFileRole"));
        m_role->setAlignment(Qt::AlignCenter);
        m_role->setProperty("tone", roleTone(isKept));
        setRoleText(isKept);
        m_role->setMinimumWidth(2 * metrics::lineHeight(kBodyPx) + metrics::kFieldGap);

        auto *path =
            new ElidedLabel(displayPathForFile(file.path, scanDirs), Qt::ElideMiddle, this);
        path->setObjectName(QStringLiteral("WechatFilePath"));
        AppToolTip::install(path, QString(), file.path);
        auto *caption = new ElidedLabel(fileCaption(file), Qt::ElideRight, this);
        caption->setObjectName(QStringLiteral("WechatFileCaption"));
        caption->setProperty("textRole", QStringLiteral("subtle"));

        auto *texts = new QVBoxLayout;
        texts->setSpacing(0);
        texts->addWidget(path);
        texts->addWidget(caption);
        auto *row = new QHBoxLayout(this);
        row->setContentsMargins(0, kRowPadding, 0, kRowPadding);
        row->setSpacing(metrics::kFieldGap);
        row->addWidget(m_radio);
        row->addLayout(texts, 1);
        row->addWidget(m_openFolder);
        row->addWidget(m_role);
    }

    QRadioButton *radio() const { return m_radio; }
    QPushButton *openFolder() const { return m_openFolder; }

    void showRole(bool isKept)
    {
        ui::common::setStyleProperty(m_role, "tone", roleTone(isKept));
        setRoleText(isKept);
    }

protected:
    void mouseReleaseEvent(QMouseEvent *event) override
    {
        if (event->button() == Qt::LeftButton && rect().contains(event->pos()))
            m_radio->click();
    }
    // Taken, or the release would go elsewhere.
    void mousePressEvent(QMouseEvent *event) override { event->accept(); }

private:
    void setRoleText(bool isKept)
    {
        m_role->setText(isKept ? tr("保留") : tr("合并"));
        // In the light theme the colour alone would not tell.
        QFont font = m_role->font();
        font.setWeight(isKept ? QFont::DemiBold : QFont::Normal);
        m_role->setFont(font);
    }
    static QString roleTone(bool isKept) { return isKept ? QStringLiteral("success") : QString(); }

    QRadioButton *m_radio;
    QPushButton *m_openFolder;
    QLabel *m_role;
};

GroupCard::GroupCard(int index, const ResultGroup &group, const QStringList &scanDirs,
                     QWidget *parent)
    : QFrame(parent)
    , m_index(index)
    , m_radios(new QButtonGroup(this))
{
    setObjectName(QStringLiteral("WechatGroupCard"));
    setProperty("card", true);
    setProperty("groupIndex", index);
    setProperty("groupSize", group.size);
    setProperty("groupHash", group.hash);
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(metrics::kCardPadding, kPaddingY, metrics::kCardPadding, kPaddingY);
    column->setSpacing(0);
    addHeader(column, group);
    for (int file = 0; file < shownRows(group); ++file)
        addRow(column, group, file, scanDirs);
    if (hasMore(group))
        addMoreButton(column, group);
}

int GroupCard::heightFor(const ResultGroup &group)
{
    return 2 * kPaddingY + 2 + metrics::controlHeight() + shownRows(group) * fileRowHeight() +
           (hasMore(group) ? metrics::controlHeight() : 0);
}

void GroupCard::addHeader(QBoxLayout *column, const ResultGroup &group)
{
    auto *line = new ElidedLabel(groupLine(group), Qt::ElideRight, this);
    line->setObjectName(QStringLiteral("WechatGroupLine"));
    line->setProperty("textRole", QStringLiteral("section"));
    auto *clean = new QPushButton(tr("清理此组"), this);
    clean->setObjectName(QStringLiteral("WechatGroupClean"));
    clean->setProperty("compact", true);
    connect(clean, &QPushButton::clicked, this, [this] { emit cleanRequested(m_index); });
    auto *header = new QWidget(this);
    header->setFixedHeight(metrics::controlHeight());
    auto *row = new QHBoxLayout(header);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(metrics::kCardGap);
    row->addWidget(line, 1);
    row->addWidget(clean);
    column->addWidget(header);
    m_tabChain.append(clean);
}

void GroupCard::addRow(QBoxLayout *column, const ResultGroup &group, int file,
                       const QStringList &scanDirs)
{
    auto *row = new FileRow(group.files.at(file), file == group.kept, scanDirs, this);
    QRadioButton *radio = row->radio();
    m_radios->addButton(radio, file);
    connect(radio, &QRadioButton::toggled, this, [this, row, file](bool checked) {
        row->showRole(checked);
        if (checked)
            emit keptChanged(m_index, file);
    });
    const QString path = group.files.at(file).path;
    connect(row->openFolder(), &QPushButton::clicked, this,
            [this, path] { emit openFolderRequested(path); });
    column->addWidget(row);
    m_tabChain << radio << row->openFolder();
}

void GroupCard::addMoreButton(QBoxLayout *column, const ResultGroup &group)
{
    auto *more = new QPushButton(
        tr("显示更多（还有 %1 个文件）").arg(group.files.size() - group.shown), this);
    more->setObjectName(QStringLiteral("WechatGroupMore"));
    more->setProperty("role", QStringLiteral("quiet"));
    connect(more, &QPushButton::clicked, this, [this] { emit moreRequested(m_index); });
    auto *row = new QWidget(this);
    row->setFixedHeight(metrics::controlHeight());
    auto *layout = new QHBoxLayout(row);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(more, 0, Qt::AlignLeft | Qt::AlignBottom);
    column->addWidget(row);
    m_tabChain.append(more);
}

} // namespace wechatclean

#include "groupcard.moc"
