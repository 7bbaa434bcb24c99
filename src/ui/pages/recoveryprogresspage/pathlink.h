#pragma once

#include "ui/common/elidedlabel.h"

namespace recoveryprogress {

/// The path of a directory on one line, to be opened by a click or by Enter.
class PathLink : public ui::common::ElidedLabel
{
    Q_OBJECT

public:
    PathLink(const QString &text, QWidget *parent);

    /// A path, which is a link, or what stands for none.
    void setPath(const QString &path, const QString &placeholder);

signals:
    void activated();

protected:
    void mouseReleaseEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    bool m_isLink = false;
};

} // namespace recoveryprogress
