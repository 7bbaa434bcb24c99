#pragma once

#include <QFrame>
#include <QJsonArray>

class BlockMapWidget;
class QFormLayout;
class QScrollArea;
class QStackedWidget;

namespace ui {
namespace common {
class ElidedLabel;
class WrapLabel;
} // namespace common
} // namespace ui

namespace blockforensics {

/// The block map with its legend, and what is known about the block that was clicked.
class BlockMapPanel : public QFrame
{
    Q_OBJECT

public:
    explicit BlockMapPanel(QWidget *parent = nullptr);

    void setBlocks(const QJsonArray &blocks);
    /// Shown in place of the map.
    void showMessage(const QString &message, bool isError);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QWidget *buildHeading();
    QWidget *buildInfo();
    ui::common::ElidedLabel *addRow(QFormLayout *form, const QString &caption, const char *name);
    void onBlockClicked(int index);
    void fitHeight();

    BlockMapWidget *m_map;
    QScrollArea *m_scroll;
    ui::common::WrapLabel *m_message;
    QStackedWidget *m_infoViews = nullptr;
    ui::common::ElidedLabel *m_index = nullptr;
    ui::common::ElidedLabel *m_physical = nullptr;
    ui::common::ElidedLabel *m_status = nullptr;
    ui::common::ElidedLabel *m_original = nullptr;
    ui::common::ElidedLabel *m_current = nullptr;
};

} // namespace blockforensics
