#pragma once

#include <QHeaderView>

namespace scanresults {

/// Header of the result table. Its first section is a check box for all listed rows, the section of
/// the file types opens a menu; the others sort.
class SelectAllHeaderView : public QHeaderView
{
    Q_OBJECT

public:
    explicit SelectAllHeaderView(QWidget *parent);

    void setCheckState(Qt::CheckState state);
    Qt::CheckState checkState() const { return m_checkState; }
    /// Marks the type section as one that hides rows.
    void setTypeFilter(const QString &label, bool active);

signals:
    void toggleAllRequested();
    /// `position` below the section, in global coordinates.
    void typeMenuRequested(const QPoint &position);

protected:
    bool viewportEvent(QEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void paintSection(QPainter *painter, const QRect &rect, int section) const override;

private:
    bool isOwnSection(int section) const;

    Qt::CheckState m_checkState = Qt::Unchecked;
    QString m_typeLabel;
    bool m_typeFilterActive = false;
    int m_pressed = -1;
};

} // namespace scanresults
