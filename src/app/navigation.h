#pragma once

#include "core/appmode.h"
#include "ui/common/iconwidget.h"

#include <QString>
#include <QVector>

#include <functional>

class FileShareController;
class QWidget;
class RecoveryWorkflowWindow;
class VaultController;

namespace core {
namespace controllers {
class ForensicsController;
class RecoveryController;
namespace upgrade {
class UpgradeController;
}
} // namespace controllers
} // namespace core

/// What the main window gives its pages: they take what they need from it.
struct PageContext
{
    core::AppMode mode = core::AppMode::normal;
    QWidget *parent = nullptr;
    core::controllers::upgrade::UpgradeController *upgradeController = nullptr;
    FileShareController *shareController = nullptr;
    VaultController *vaultController = nullptr;
    // Only in the recovery environment.
    core::controllers::RecoveryController *recoveryController = nullptr;
    core::controllers::ForensicsController *forensicsController = nullptr;
    RecoveryWorkflowWindow *workflowWindow = nullptr;
};

/// One entry of the sidebar and the page behind it.
struct NavigationEntry
{
    QString section; ///< Its header stands above the first entry of a section.
    QString label;
    QString moduleKey; ///< Stable name of the page for diagnostics and look-ups.
    ui::common::IconWidget::IconType icon;
    bool eager; ///< Built with the window; otherwise on first show.
    std::function<QWidget *(const PageContext &)> create;
};

/// The entries of a run mode, in the order of the sidebar; those of one section stand together.
QVector<NavigationEntry> navigationEntries(core::AppMode mode);

/// True for the section whose header is drawn with emphasis.
bool isEmphasizedSection(const QString &section);
