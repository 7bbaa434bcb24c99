#pragma once

#include "ui/common/statwidgets.h"

#include <QString>
#include <QStringList>

class QLabel;
class QPushButton;
class QWidget;

/// Small things that the share page and its dialogs build alike.
namespace fileshare {

QPushButton *namedButton(const QString &text, const char *objectName, QWidget *parent);
QLabel *sectionTitle(const QString &text, QWidget *parent);
/// Muted plain text in caption size.
QLabel *subtleLabel(const QString &text, QWidget *parent);

ui::common::StatusPill::Type pillForStatus(const QString &status);

/// Tells modally that a share runs and under which links. A single link can be copied there;
/// several are chosen from in the details.
void showLinks(QWidget *parent, const QString &title, const QStringList &urls);

} // namespace fileshare
