#pragma once

#include "ui/common/models/partitionmodels.h"

#include <QWidget>

class QHBoxLayout;

/// One disk: a line with its name, size and type, and below it a card for each partition, which
/// wrap with the width.
class DiskGroupWidget : public QWidget
{
    Q_OBJECT

public:
    explicit DiskGroupWidget(const ui::common::models::DiskGroup &group, QWidget *parent = nullptr);

private:
    QHBoxLayout *buildHeader(const ui::common::models::DiskGroup &group);
    QWidget *buildDiskTag(const QString &label);
    QWidget *buildEmptyBox();
};
