#include "ui/pages/blockforensicspage.h"

#include "core/controllers/forensicscontroller.h"
#include "ui/common/appnoticedialog.h"
#include "ui/common/emptystate.h"
#include "ui/common/keyroles.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/widgetstyle.h"
#include "ui/common/wraplabel.h"
#include "ui/pages/blockforensicspage/forensicsrules.h"
#include "ui/pages/blockforensicspage/snapshotdetail.h"

#include <QFileDialog>
#include <QHBoxLayout>
#include <QItemSelectionModel>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QPushButton>
#include <QScrollArea>
#include <QStackedWidget>
#include <QStandardItemModel>
#include <QTimer>

using blockforensics::SnapshotDetail;
using core::controllers::ForensicsController;
using ui::common::AppNoticeDialog;
using ui::common::EmptyState;
using ui::common::IconWidget;
using ui::common::WrapLabel;
namespace metrics = ui::common::metrics;

namespace {

constexpr int kListWidth = 260;
constexpr int kBodyPx = 13;
constexpr int kEntryPadding = 16;
constexpr int kIdRole = Qt::UserRole + 1;

QString textOf(const QJsonObject &object, const char *key)
{
    return object.value(QLatin1String(key)).toString();
}

/// Whether an answer that names `id` is the one that is waited for. Some services leave out the id.
bool isAwaited(const QString &id, const QString &awaited)
{
    return !awaited.isEmpty() && (id.isEmpty() || id == awaited);
}

QFrame *panel(QWidget *parent)
{
    auto *frame = new QFrame(parent);
    frame->setObjectName(QStringLiteral("SurfacePanel"));
    return frame;
}

} // namespace

BlockForensicsPage::BlockForensicsPage(ForensicsController *controller, QWidget *parent)
    : QWidget(parent)
    , m_controller(controller)
    , m_chooseDirectory([](QWidget *owner, const QString &title) {
        return QFileDialog::getExistingDirectory(owner, title);
    })
    , m_snapshots(new QStandardItemModel(this))
{
    setObjectName(QStringLiteral("BlockForensicsPage"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(metrics::kPageMargin, metrics::kPageMargin, metrics::kPageMargin,
                               metrics::kPageMargin);
    layout->setSpacing(metrics::kCardGap);
    layout->addLayout(buildHeader());
    layout->addWidget(buildRegistration());
    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kCardGap);
    row->addWidget(buildList());
    row->addWidget(buildDetail(), 1);
    layout->addLayout(row, 1);
    wireDetail();
    wireController();
    showListState();
    select(QString());
}

QVBoxLayout *BlockForensicsPage::buildHeader()
{
    auto *title = new QLabel(tr("块取证调试"), this);
    title->setObjectName(QStringLiteral("PageTitle"));
    auto *line = new WrapLabel(tr("注册已知文件的块快照，删除后验证数据块是否仍然完好"), this);
    line->setObjectName(QStringLiteral("SubtleText"));
    auto *texts = new QVBoxLayout;
    texts->setSpacing(metrics::kFieldGap / 2);
    texts->addWidget(title);
    texts->addWidget(line);
    return texts;
}

QFrame *BlockForensicsPage::buildRegistration()
{
    QFrame *frame = panel(this);
    auto *caption = new QLabel(tr("文件路径"), frame);
    m_path = new QLineEdit(frame);
    m_path->setObjectName(QStringLiteral("ForensicsPathEdit"));
    m_path->setPlaceholderText(tr("例如：/home/user/文档/报告.docx"));
    caption->setBuddy(m_path);
    m_register = new QPushButton(tr("注册快照"), frame);
    m_register->setObjectName(QStringLiteral("RegisterSnapshotButton"));
    ui::common::setButtonRole(m_register, QStringLiteral("primary"));
    connect(m_register, &QPushButton::clicked, this, &BlockForensicsPage::registerFile);
    connect(m_path, &QLineEdit::returnPressed, m_register, &QPushButton::click);
    auto *row = new QHBoxLayout(frame);
    row->setContentsMargins(metrics::kCardPadding, metrics::kCardGap, metrics::kCardPadding,
                            metrics::kCardGap);
    row->setSpacing(metrics::kFieldGap);
    row->addWidget(caption);
    row->addWidget(m_path, 1);
    row->addWidget(m_register);
    return frame;
}

QFrame *BlockForensicsPage::buildList()
{
    QFrame *frame = panel(this);
    frame->setFixedWidth(kListWidth);
    auto *title = new QLabel(tr("已注册快照"), frame);
    title->setObjectName(QStringLiteral("SectionTitle"));
    m_list = new QListView(frame);
    m_list->setObjectName(QStringLiteral("SnapshotList"));
    m_list->setProperty("frameless", true);
    m_list->setModel(m_snapshots);
    m_list->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_list->setTextElideMode(Qt::ElideMiddle);
    m_list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_list->setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    m_list->setUniformItemSizes(true);
    connect(m_list->selectionModel(), &QItemSelectionModel::currentChanged, this,
            &BlockForensicsPage::onCurrentChanged);
    m_listState = new EmptyState(IconWidget::Seal, frame);
    connect(m_listState, &EmptyState::actionTriggered, this, &BlockForensicsPage::refresh);
    m_listViews = new QStackedWidget(frame);
    m_listViews->addWidget(m_list);
    m_listViews->addWidget(m_listState);
    m_delete = new QPushButton(tr("删除"), frame);
    ui::common::setKeyRole(m_delete, ui::common::KeyRole::Remove);
    m_delete->setObjectName(QStringLiteral("DeleteSnapshotButton"));
    ui::common::setButtonRole(m_delete, QStringLiteral("danger"));
    connect(m_delete, &QPushButton::clicked, this, &BlockForensicsPage::deleteSnapshot);

    auto *column = new QVBoxLayout(frame);
    column->setContentsMargins(metrics::kCardGap, metrics::kCardGap, metrics::kCardGap,
                               metrics::kCardGap);
    column->setSpacing(metrics::kFieldGap);
    column->addWidget(title);
    column->addWidget(m_listViews, 1);
    column->addWidget(m_delete);
    return frame;
}

QStackedWidget *BlockForensicsPage::buildDetail()
{
    m_detail = new SnapshotDetail;
    auto *scroll = new QScrollArea(this);
    scroll->setObjectName(QStringLiteral("SnapshotDetailArea"));
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setWidget(m_detail);
    m_detailState = new EmptyState(IconWidget::Grid, this);
    m_detailViews = new QStackedWidget(this);
    m_detailViews->addWidget(scroll);
    m_detailViews->addWidget(m_detailState);
    return m_detailViews;
}

void BlockForensicsPage::wireDetail()
{
    connect(m_detail, &SnapshotDetail::verifyRequested, this, &BlockForensicsPage::verify);
    connect(m_detail, &SnapshotDetail::verificationChosen, this,
            &BlockForensicsPage::requestVerification);
    connect(m_detail, &SnapshotDetail::recoverRequested, this, &BlockForensicsPage::recoverFile);
    connect(m_detailState, &EmptyState::actionTriggered, this, [this] { select(m_selectedId); });
}

void BlockForensicsPage::wireController()
{
    if (!m_controller)
        return;
    ForensicsController *source = m_controller;
    connect(source, &ForensicsController::registerResult, this,
            &BlockForensicsPage::onRegisterResult);
    connect(source, &ForensicsController::snapshotsListed, this,
            &BlockForensicsPage::onSnapshotsListed);
    connect(source, &ForensicsController::snapshotLoaded, this,
            &BlockForensicsPage::onSnapshotLoaded);
    connect(source, &ForensicsController::verifyResult, this, &BlockForensicsPage::onVerifyResult);
    connect(source, &ForensicsController::verificationLoaded, this,
            &BlockForensicsPage::onVerificationLoaded);
    connect(source, &ForensicsController::recoverFileResult, this,
            &BlockForensicsPage::onRecoverFileResult);
    connect(source, &ForensicsController::snapshotDeleted, this,
            &BlockForensicsPage::onSnapshotDeleted);
    connect(source, &ForensicsController::queryFailed, this, &BlockForensicsPage::onQueryFailed);
}

void BlockForensicsPage::later(const std::function<void()> &show)
{
    QTimer::singleShot(0, this, show);
}

void BlockForensicsPage::refresh()
{
    if (!m_controller)
        return;
    m_needsReload = m_isLoading;
    if (m_isLoading)
        return;
    m_isLoading = true;
    showListState();
    m_controller->listSnapshots();
}

void BlockForensicsPage::registerFile()
{
    const QString path = m_path->text().trimmed();
    if (path.isEmpty()) {
        AppNoticeDialog::showWarning(this, tr("提示"), tr("请输入文件路径"));
        return;
    }
    if (!m_controller)
        return;
    m_register->setEnabled(false);
    m_register->setText(tr("注册中..."));
    m_controller->registerFile(path);
}

void BlockForensicsPage::onRegisterResult(bool success, const QJsonObject &result,
                                          const QString &message)
{
    m_register->setEnabled(true);
    m_register->setText(tr("注册快照"));
    if (!success) {
        later([this, message] { AppNoticeDialog::showError(this, tr("注册失败"), message); });
        return;
    }
    refresh();
    later([this, result] {
        AppNoticeDialog::showSuccess(this, tr("注册成功"), blockforensics::registeredText(result));
    });
}

void BlockForensicsPage::onSnapshotsListed(const QJsonArray &snapshots)
{
    m_isLoading = false;
    m_isListed = true;
    const QString selected = m_selectedId;
    QStandardItem *current = nullptr;
    {
        // The current row comes and goes while the list is made anew; the selection is kept by id.
        const QSignalBlocker blocker(m_list->selectionModel());
        m_snapshots->clear();
        for (const QJsonValue &value : snapshots) {
            const QJsonObject snapshot = value.toObject();
            auto *item = new QStandardItem(blockforensics::snapshotEntry(snapshot));
            item->setData(textOf(snapshot, "snapshotId"), kIdRole);
            item->setToolTip(textOf(snapshot, "filePath"));
            // No width, so that the list's own is what paths are shortened to.
            item->setSizeHint(QSize(0, 2 * metrics::lineHeight(kBodyPx) + kEntryPadding));
            m_snapshots->appendRow(item);
            if (!selected.isEmpty() && item->data(kIdRole).toString() == selected)
                current = item;
        }
        if (current)
            m_list->setCurrentIndex(current->index());
    }
    if (!selected.isEmpty() && !current)
        select(QString());
    m_list->viewport()->update();
    showListState();
    if (m_needsReload)
        refresh();
}

void BlockForensicsPage::showListState(const QString &failure)
{
    m_listViews->setCurrentIndex(m_snapshots->rowCount() > 0 && failure.isEmpty() ? 0 : 1);
    m_listState->setActionText(QString());
    if (m_isLoading) {
        m_listState->setTone(EmptyState::Tone::Busy);
        m_listState->setTexts(tr("正在读取快照..."), QString());
    } else if (!failure.isEmpty()) {
        m_listState->setTone(EmptyState::Tone::Error);
        m_listState->setTexts(tr("无法读取快照列表"), failure);
        m_listState->setActionText(tr("重新读取"));
    } else if (!m_isListed) {
        m_listState->setTone(EmptyState::Tone::Plain);
        m_listState->setTexts(tr("等待恢复服务"), tr("连接后会自动读取快照。"));
        m_listState->setActionText(tr("重新读取"));
    } else {
        m_listState->setTone(EmptyState::Tone::Plain);
        m_listState->setTexts(tr("还没有快照"), tr("在上方输入文件路径并注册。"));
    }
}

void BlockForensicsPage::onCurrentChanged()
{
    select(m_list->currentIndex().data(kIdRole).toString());
}

void BlockForensicsPage::select(const QString &snapshotId)
{
    m_selectedId = snapshotId;
    m_requestedVerification.clear();
    m_delete->setEnabled(!snapshotId.isEmpty());
    m_detailState->setActionText(QString());
    m_detailViews->setCurrentIndex(1);
    if (snapshotId.isEmpty() || !m_controller) {
        m_detailState->setTone(EmptyState::Tone::Plain);
        m_detailState->setTexts(tr("选择一个快照查看详情"), QString());
        return;
    }
    m_detailState->setTone(EmptyState::Tone::Busy);
    m_detailState->setTexts(tr("正在读取快照..."), QString());
    m_controller->getSnapshot(snapshotId);
}

void BlockForensicsPage::onSnapshotLoaded(const QJsonObject &snapshot)
{
    if (!isAwaited(textOf(snapshot, "snapshotId"), m_selectedId))
        return;
    m_detail->setSnapshot(snapshot);
    m_detailViews->setCurrentIndex(0);
}

void BlockForensicsPage::verify(const QString &note)
{
    if (!m_controller || m_selectedId.isEmpty())
        return;
    m_verifyingId = m_selectedId;
    m_detail->setVerifying(true);
    m_controller->verify(m_selectedId, note);
}

void BlockForensicsPage::onVerifyResult(bool success, const QJsonObject &result,
                                        const QString &message)
{
    const bool isShown = m_verifyingId == m_selectedId;
    m_verifyingId.clear();
    m_detail->setVerifying(false);
    if (!success) {
        later([this, message] { AppNoticeDialog::showError(this, tr("验证失败"), message); });
        return;
    }
    // The other snapshot lists the verification once it is selected again.
    if (!isShown)
        return;
    m_requestedVerification = textOf(result, "verificationId");
    m_detail->addVerification(result);
    m_detail->showBlocks(result.value(QLatin1String("blockDetails")).toArray());
}

void BlockForensicsPage::requestVerification(const QString &verificationId)
{
    if (!m_controller || verificationId.isEmpty())
        return;
    m_requestedVerification = verificationId;
    m_detail->showMapMessage(tr("正在读取验证结果..."), false);
    m_controller->getVerification(verificationId);
}

void BlockForensicsPage::onVerificationLoaded(const QJsonObject &verification)
{
    if (isAwaited(textOf(verification, "verificationId"), m_requestedVerification))
        m_detail->showBlocks(verification.value(QLatin1String("blockDetails")).toArray());
}

void BlockForensicsPage::recoverFile()
{
    const QString snapshotId = m_selectedId;
    const QPointer<BlockForensicsPage> self(this);
    const QString directory = m_chooseDirectory(this, tr("选择保存目录"));
    if (!self || !m_controller || snapshotId.isEmpty() || directory.isEmpty())
        return;
    m_detail->setRecovering(true);
    m_controller->recoverFile(snapshotId, directory);
}

void BlockForensicsPage::onRecoverFileResult(bool success, const QJsonObject &result,
                                             const QString &message)
{
    m_detail->setRecovering(false);
    later([this, success, result, message] {
        if (success)
            AppNoticeDialog::showSuccess(this, tr("恢复完成"),
                                         blockforensics::recoveredText(result));
        else
            AppNoticeDialog::showError(this, tr("恢复失败"), message);
    });
}

void BlockForensicsPage::deleteSnapshot()
{
    const QString snapshotId = m_selectedId;
    const QString path = m_list->currentIndex().data(Qt::ToolTipRole).toString();
    const QPointer<BlockForensicsPage> self(this);
    // Once its file is deleted, a snapshot cannot be made again.
    const bool agreed = AppNoticeDialog::confirmDestruction(
        this, tr("确认删除"), tr("确定要删除 %1 的块快照吗？此操作不可撤销。").arg(path),
        tr("删除"));
    if (!agreed || !self || !m_controller || snapshotId.isEmpty())
        return;
    m_delete->setEnabled(false);
    m_controller->deleteSnapshot(snapshotId);
}

void BlockForensicsPage::onSnapshotDeleted(bool success)
{
    const QSignalBlocker blocker(m_list->selectionModel());
    m_list->setCurrentIndex(QModelIndex());
    select(QString());
    refresh();
    if (!success)
        later([this] {
            AppNoticeDialog::showError(this, tr("删除失败"), tr("恢复服务没有删除该快照。"));
        });
}

void BlockForensicsPage::onQueryFailed(const QString &method, const QString &id,
                                       const QString &message)
{
    if (method == QLatin1String("debug.listSnapshots")) {
        m_isLoading = false;
        m_needsReload = false;
        showListState(message);
    } else if (method == QLatin1String("debug.getSnapshot")) {
        if (id != m_selectedId)
            return;
        m_detailState->setTone(EmptyState::Tone::Error);
        m_detailState->setTexts(tr("无法读取快照"), message);
        m_detailState->setActionText(tr("重试"));
        m_detailViews->setCurrentIndex(1);
    } else if (method == QLatin1String("debug.getVerification")) {
        if (id == m_requestedVerification)
            m_detail->showMapMessage(tr("无法读取验证结果：%1").arg(message), true);
    }
}
