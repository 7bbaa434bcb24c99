#include "ui/pages/globalsettingspage.h"

#include "core/controllers/upgrade/upgradecontroller.h"
#include "ui/common/appnoticedialog.h"
#include "ui/common/layoutmetrics.h"
#include "ui/common/widgetstyle.h"
#include "ui/common/wraplabel.h"
#include "ui/pages/globalsettingspage/settingsrules.h"

#include <QComboBox>
#include <QCoreApplication>
#include <QDebug>
#include <QDir>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QSettings>
#include <QTimer>
#include <QVBoxLayout>

#include <cmath>
#include <functional>

using core::controllers::upgrade::UpgradeController;
using ui::common::AppNoticeDialog;
using ui::common::WrapLabel;
namespace metrics = ui::common::metrics;
namespace rules = globalsettings;

namespace {

constexpr int kCardMaxWidth = 720;
constexpr int kComboWidth = 220;
constexpr double kScaleTolerance = 0.001;

QString fontScaleKey()
{
    return QStringLiteral("ui/fontScale");
}

QString sidebarModeKey()
{
    return QStringLiteral("ui/sidebarMode");
}

QString pinnedWord()
{
    return QStringLiteral("pinned");
}

QFrame *newCard(const QString &objectName, const QString &heading, QVBoxLayout **column)
{
    auto *card = new QFrame;
    card->setObjectName(objectName);
    card->setProperty("card", true);
    card->setMaximumWidth(kCardMaxWidth);
    *column = new QVBoxLayout(card);
    (*column)->setContentsMargins(metrics::kCardPadding, metrics::kCardPadding,
                                  metrics::kCardPadding, metrics::kCardPadding);
    (*column)->setSpacing(metrics::kCardGap);
    auto *title = new QLabel(heading, card);
    title->setProperty("textRole", QStringLiteral("section"));
    (*column)->addWidget(title);
    return card;
}

// Answers may come inside a callback of a service link, which would stand still under a dialog.
void showLater(const QPointer<GlobalSettingsPage> &page, bool ok, const QString &title,
               const QString &message, const std::function<void()> &then = std::function<void()>())
{
    if (!page)
        return;
    QTimer::singleShot(0, page.data(), [page, ok, title, message, then] {
        if (ok)
            AppNoticeDialog::showInfo(page, title, message);
        else
            AppNoticeDialog::showWarning(page, title, message);
        if (then)
            then();
    });
}

QFormLayout *newForm()
{
    auto *form = new QFormLayout;
    form->setHorizontalSpacing(metrics::kCardGap);
    form->setVerticalSpacing(metrics::kCardGap);
    form->setLabelAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    return form;
}

} // namespace

GlobalSettingsPage::GlobalSettingsPage(UpgradeController *controller, core::AppMode,
                                       QWidget *parent, const QString &settingsPath)
    : QWidget(parent)
    , m_controller(controller)
    , m_settingsPath(settingsPath.isEmpty()
                         ? QDir::homePath() + QStringLiteral("/.config/morvane/morvane.conf")
                         : settingsPath)
{
    setObjectName(QStringLiteral("GlobalSettingsPage"));
    auto *content = new QWidget;
    auto *column = new QVBoxLayout(content);
    column->setContentsMargins(metrics::kPageMargin, metrics::kPageMargin, metrics::kPageMargin,
                               metrics::kPageMargin);
    column->setSpacing(metrics::kCardGap);
    auto *title = new QLabel(tr("全局设置"), content);
    title->setObjectName(QStringLiteral("PageTitle"));
    column->addWidget(title);
    column->addWidget(buildInterfaceCard());
    column->addWidget(buildUpgradeCard());
    column->addStretch(1);

    auto *scroll = new QScrollArea(this);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    scroll->setWidget(content);
    auto *outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->addWidget(scroll);

    loadSettings();
    wireController();
    refreshUpgradeState();
}

QFrame *GlobalSettingsPage::buildInterfaceCard()
{
    QVBoxLayout *column = nullptr;
    QFrame *card = newCard(QStringLiteral("GlobalSettingsCard"), tr("界面"), &column);
    m_fontScale = new QComboBox(card);
    m_fontScale->setObjectName(QStringLiteral("FontScaleCombo"));
    for (const rules::FontScaleChoice &choice : rules::fontScaleChoices())
        m_fontScale->addItem(choice.text, choice.scale);
    m_sidebarMode = new QComboBox(card);
    m_sidebarMode->setObjectName(QStringLiteral("SidebarModeCombo"));
    m_sidebarMode->addItem(tr("收缩"), QStringLiteral("collapsed"));
    m_sidebarMode->addItem(tr("固定"), pinnedWord());
    for (QComboBox *combo : {m_fontScale, m_sidebarMode})
        combo->setMinimumWidth(kComboWidth);

    QFormLayout *form = newForm();
    form->addRow(tr("字体大小"), m_fontScale);
    form->addRow(tr("导航栏位置"), m_sidebarMode);
    column->addLayout(form);
    auto *hint = new WrapLabel(tr("字体大小调整会在应用重新启动后生效。"), card);
    hint->setProperty("textRole", QStringLiteral("subtle"));
    column->addWidget(hint);

    auto *save = new QPushButton(tr("保存设置"), card);
    save->setObjectName(QStringLiteral("SaveSettingsButton"));
    ui::common::setButtonRole(save, QStringLiteral("primary"));
    connect(save, &QPushButton::clicked, this, &GlobalSettingsPage::saveSettings);
    auto *row = new QHBoxLayout;
    row->addStretch(1);
    row->addWidget(save);
    column->addLayout(row);
    return card;
}

QFrame *GlobalSettingsPage::buildUpgradeCard()
{
    QVBoxLayout *column = nullptr;
    QFrame *card = newCard(QStringLiteral("GlobalUpgradeCard"), tr("软件更新"), &column);
    QFormLayout *form = newForm();
    const auto addRow = [card, form](const QString &label, const QString &objectName) {
        auto *value = new WrapLabel(card);
        value->setObjectName(objectName);
        form->addRow(label, value);
        return value;
    };
    m_currentVersion = addRow(tr("当前版本："), QStringLiteral("CurrentVersionLabel"));
    m_latestVersion = addRow(tr("最新版本："), QStringLiteral("LatestVersionLabel"));
    m_status = addRow(tr("更新状态："), QStringLiteral("UpgradeStatusLabel"));
    column->addLayout(form);

    m_check = new QPushButton(tr("检查更新"), card);
    m_check->setObjectName(QStringLiteral("CheckUpdateButton"));
    m_primary = new QPushButton(card);
    m_primary->setObjectName(QStringLiteral("UpgradePrimaryButton"));
    connect(m_check, &QPushButton::clicked, this, &GlobalSettingsPage::checkForUpdates);
    connect(m_primary, &QPushButton::clicked, this,
            &GlobalSettingsPage::performUpgradePrimaryAction);
    auto *row = new QHBoxLayout;
    row->setSpacing(metrics::kButtonGap);
    row->addStretch(1);
    row->addWidget(m_check);
    row->addWidget(m_primary);
    column->addLayout(row);
    return card;
}

void GlobalSettingsPage::wireController()
{
    if (!m_controller)
        return;
    connect(m_controller, &UpgradeController::stateChanged, this,
            &GlobalSettingsPage::refreshUpgradeState);
    connect(m_controller, &UpgradeController::installFinished, this,
            &GlobalSettingsPage::refreshUpgradeState);
    connect(m_controller, &UpgradeController::updateStageChanged, this,
            [this](const QString &text) { m_status->setText(text); });
    connect(m_controller, &UpgradeController::downloadProgressChanged, this,
            [this](qint64 received, qint64 total) {
                const QString text = rules::downloadText(received, total);
                if (!text.isEmpty())
                    m_status->setText(text);
            });
}

void GlobalSettingsPage::loadSettings()
{
    const QSettings settings(m_settingsPath, QSettings::IniFormat);
    m_fontScale->setCurrentIndex(
        rules::fontScaleIndex(settings.value(fontScaleKey(), rules::kDefaultFontScale).toDouble()));
    const QString mode = settings.value(sidebarModeKey(), QStringLiteral("collapsed")).toString();
    m_sidebarMode->setCurrentIndex(qMax(0, m_sidebarMode->findData(mode)));
}

void GlobalSettingsPage::saveSettings()
{
    QSettings settings(m_settingsPath, QSettings::IniFormat);
    const double stored = settings.value(fontScaleKey(), rules::kDefaultFontScale).toDouble();
    const double chosen = m_fontScale->currentData().toDouble();
    const QString mode = m_sidebarMode->currentData().toString();
    settings.setValue(fontScaleKey(), chosen);
    settings.setValue(sidebarModeKey(), mode);
    settings.sync();
    if (settings.status() != QSettings::NoError) {
        qWarning().noquote() << "[GlobalSettingsPage] settings not saved:" << m_settingsPath;
        AppNoticeDialog::showWarning(this, tr("保存失败"),
                                     tr("无法写入设置文件，请检查磁盘空间和目录权限。"),
                                     m_settingsPath);
        return;
    }
    emit sidebarPinnedChanged(mode == pinnedWord());
    if (std::fabs(stored - chosen) < kScaleTolerance)
        return;
    if (AppNoticeDialog::confirm(
            this, tr("设置已保存"),
            tr("导航栏位置已立即生效，字体大小设置会在应用重新启动后生效。\n\n是否现在退出程序？"),
            tr("退出程序"), tr("我知道了"), AppNoticeDialog::Success))
        QCoreApplication::quit();
}

void GlobalSettingsPage::refreshUpgradeState()
{
    const bool updatesItself = m_controller && m_controller->canAutoUpgrade();
    m_primary->setText(updatesItself ? tr("立即更新") : tr("下载更新"));
    for (QPushButton *button : {m_check, m_primary})
        button->setEnabled(m_controller);
    if (!m_controller) {
        m_currentVersion->setText(tr("暂无"));
        m_latestVersion->setText(tr("暂无"));
        m_status->setText(tr("更新功能不可用"));
        return;
    }
    if (m_controller->currentVersion().isEmpty())
        m_controller->updateCurrentVersionFields();
    m_currentVersion->setText(m_controller->currentVersion());
    m_latestVersion->setText(
        rules::latestVersionText(m_controller->latestVersion(), m_controller->state().publishedAt));
    m_status->setText(m_controller->statusText());
    ui::common::setButtonRole(m_primary, m_controller->updateAvailable() ? QStringLiteral("primary")
                                                                         : QString());
}

void GlobalSettingsPage::checkForUpdates()
{
    if (!m_controller)
        return;
    const QPointer<GlobalSettingsPage> self(this);
    m_controller->runCheck(true, [self](bool ok, const QString &message) {
        showLater(self, ok, tr("检查更新"), message);
    });
}

void GlobalSettingsPage::performUpgradePrimaryAction()
{
    if (!m_controller)
        return;
    if (m_controller->canAutoUpgrade())
        startUpdate();
    else
        openDownloadPage();
}

void GlobalSettingsPage::startUpdate()
{
    if (!AppNoticeDialog::confirm(
            this, tr("立即更新"),
            tr("客户端将下载并安装新版本，安装任务提交后应用会退出。是否继续？"), tr("下载并安装"),
            QString(), AppNoticeDialog::Information) ||
        !m_controller)
        return;
    const QPointer<GlobalSettingsPage> self(this);
    m_controller->startImmediateUpdate([self](bool ok, const QString &message) {
        const QString fallback =
            ok ? tr("升级代理已启动，主程序即将退出。") : tr("无法启动升级代理。");
        const std::function<void()> quit = [] {
            QCoreApplication::quit();
        };
        showLater(self, ok, tr("立即更新"), message.isEmpty() ? fallback : message,
                  ok ? quit : std::function<void()>());
    });
}

void GlobalSettingsPage::openDownloadPage()
{
    const QPointer<GlobalSettingsPage> self(this);
    m_controller->openDownloadPage(
        [self](bool ok, const QString &message) { showLater(self, ok, tr("下载更新"), message); });
}
