#pragma once

#include <QString>
#include <QStringList>

namespace ui {
namespace common {
namespace utils {

/// File type words ("PDF", "jpg") sorted into the categories that people filter by. Words are
/// compared in upper case; keys are "all", "document", "photo", "video", "archive", "other".
class FileTypeCategoryUtils
{
public:
    /// Labels in the order of the menu, "全部类型" first.
    static QStringList categoryFilterLabels();
    /// "all" for a label that is none.
    static QString categoryKeyFromLabel(const QString &label);
    /// "全部类型" for a key that is none.
    static QString categoryLabelFromKey(const QString &key);
    /// Key of the category that a type belongs to, "other" if to none.
    static QString categoryOfType(const QString &type);
    /// "all" and keys that are none accept every type.
    static bool matchesCategory(const QString &type, const QString &key);

    static bool isDocumentType(const QString &type);
    static bool isPhotoType(const QString &type);
    static bool isVideoType(const QString &type);
    static bool isArchiveType(const QString &type);
};

} // namespace utils
} // namespace common
} // namespace ui
