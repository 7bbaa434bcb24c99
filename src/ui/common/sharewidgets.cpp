#include "ui/common/sharewidgets.h"

#include "ui/common/appnoticedialog.h"
#include "ui/common/utils/sharetext.h"

#include <QPushButton>

using ui::common::AppNoticeDialog;
using ui::common::StatusPill;

namespace fileshare {

QPushButton *namedButton(const QString &text, const char *objectName, QWidget *parent)
{
    auto *button = new QPushButton(text, parent);
    button->setObjectName(QLatin1String(objectName));
    // In a dialog Enter belongs to the buttons of its own row.
    button->setAutoDefault(false);
    return button;
}

QLabel *sectionTitle(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setObjectName(QStringLiteral("SectionTitle"));
    return label;
}

QLabel *subtleLabel(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setTextFormat(Qt::PlainText);
    label->setProperty("textRole", QStringLiteral("subtle"));
    return label;
}

StatusPill::Type pillForStatus(const QString &status)
{
    if (isActive(status))
        return StatusPill::Success;
    return isExpired(status) ? StatusPill::Warning : StatusPill::Info;
}

void showLinks(QWidget *parent, const QString &title, const QStringList &urls)
{
    AppNoticeDialog::showSuccess(parent, title, linksText(urls),
                                 urls.size() == 1 ? urls.first() : QString());
}

} // namespace fileshare
