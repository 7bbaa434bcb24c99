#pragma once

#include <QCheckBox>

/// Check box whose text wraps; the indicator stands beside the first line.
class WrapCheckBox : public QCheckBox
{
    Q_OBJECT

public:
    explicit WrapCheckBox(const QString &text, QWidget *parent = nullptr);

    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    bool hitButton(const QPoint &position) const override;

private:
    int textLeft() const;
    int lineHeight() const;
};
