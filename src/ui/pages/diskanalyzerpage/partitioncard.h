#pragma once

#include "ui/pages/diskanalyzerpage/partitionrules.h"

#include <QFrame>

namespace diskanalyzer {

/// A partition that can be chosen. Its look follows the property `selected`. Object name
/// PartitionCard; the mount path is in the property `mountPath`.
class PartitionCard : public QFrame
{
    Q_OBJECT

public:
    PartitionCard(const PartitionInfo &partition, QWidget *parent);

    void setSelected(bool selected);

signals:
    /// A left click that ends inside the card, or Space or Enter on it.
    void clicked();
    /// -1 or 1: an arrow key towards the card before or after.
    void stepRequested(int step);

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    QWidget *buildBar(int percent);
};

} // namespace diskanalyzer
