#pragma once

#include "ui/common/framelessdialog.h"
#include "ui/pages/shieldsettingsdialog/shieldrules.h"

#include <QHash>

#include <functional>

class QBoxLayout;
class QComboBox;
class QGridLayout;

namespace ui {
namespace common {
class FlowLayout;
}
} // namespace ui

/// The configuration of the vault service. Run modally; nothing is sent from here.
class ShieldSettingsDialog : public ui::common::FramelessDialog
{
    Q_OBJECT

public:
    using Settings = shieldsettings::Settings;
    using DirectoryChooser = std::function<QString(QWidget *parent, const QString &title)>;

    explicit ShieldSettingsDialog(QWidget *parent = nullptr);

    /// A limit that is not among the choices leaves its box where it is.
    void setSettings(const Settings &settings);
    /// File types come as whole groups: what belongs to none is not kept.
    Settings settings() const;
    /// Why deletions past the hook are not kept; empty while they are.
    void setSecondNetReason(const QString &reason);
    /// What stands in for the directory dialog.
    void setDirectoryChooser(const DirectoryChooser &chooser) { m_chooseDirectory = chooser; }

    bool eventFilter(QObject *watched, QEvent *event) override;

public slots:
    void addDir();
    /// Refused for the last one.
    void removeDir(const QString &path);

private:
    struct HoverNote
    {
        QString title;
        QString body;
    };

    void buildDirectoryCard(QBoxLayout *column);
    void buildTypeCard(QBoxLayout *column);
    void buildLimitCard(QBoxLayout *column);
    QComboBox *addLimitRow(QGridLayout *grid, const char *name,
                           const shieldsettings::LimitOption &option);
    void buildButtons();
    void rebuildTags();
    void setHoverNote(QWidget *widget, const HoverNote &note);

    DirectoryChooser m_chooseDirectory;
    QStringList m_dirs;
    QHash<const QObject *, HoverNote> m_notes;
    QWidget *m_dirHint = nullptr;
    QWidget *m_tagArea = nullptr;
    ui::common::FlowLayout *m_tags = nullptr;
    QVector<QPushButton *> m_groups; ///< In the order of the groups' table.
    QComboBox *m_retention = nullptr;
    QComboBox *m_space = nullptr;
    QComboBox *m_emergency = nullptr;
};
