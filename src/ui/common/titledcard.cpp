#include "ui/common/titledcard.h"

#include "ui/common/layoutmetrics.h"
#include "ui/common/wraplabel.h"

#include <QFrame>
#include <QVBoxLayout>

namespace ui {
namespace common {

QVBoxLayout *addTitledCard(QBoxLayout *column, const QString &title, const QString &hint)
{
    auto *card = new QFrame(column->parentWidget());
    card->setProperty("card", true);
    auto *layout = new QVBoxLayout(card);
    layout->setContentsMargins(metrics::kCardPadding, metrics::kCardGap, metrics::kCardPadding,
                               metrics::kCardGap);
    layout->setSpacing(metrics::kFieldGap);
    auto *heading = new QLabel(title, card);
    heading->setObjectName(QStringLiteral("SectionTitle"));
    layout->addWidget(heading);
    if (!hint.isEmpty()) {
        auto *text = new WrapLabel(hint, card);
        text->setObjectName(QStringLiteral("SubtleText"));
        layout->addWidget(text);
    }
    column->addWidget(card);
    return layout;
}

} // namespace common
} // namespace ui
