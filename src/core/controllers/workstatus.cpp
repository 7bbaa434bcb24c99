#include "core/controllers/workstatus.h"

namespace core::controllers {

WorkStatus workStatusOf(const QJsonObject &record)
{
    struct Word
    {
        QLatin1String text;
        WorkStatus status;
    };
    static const Word words[] = {
        {QLatin1String("running"), WorkStatus::Running},
        {QLatin1String("paused"), WorkStatus::Paused},
        {QLatin1String("completed"), WorkStatus::Completed},
        {QLatin1String("completed_with_errors"), WorkStatus::Completed},
        {QLatin1String("stopped"), WorkStatus::Stopped},
        {QLatin1String("failed"), WorkStatus::Failed},
        {QLatin1String("interrupted"), WorkStatus::Interrupted},
    };
    const QString status = record.value(QLatin1String("status")).toString();
    for (const Word &word : words) {
        if (status == word.text)
            return word.status;
    }
    const bool hasSummary = !record.value(QLatin1String("scanSummary")).toObject().isEmpty();
    return hasSummary ? WorkStatus::Completed : WorkStatus::Running;
}

} // namespace core::controllers
