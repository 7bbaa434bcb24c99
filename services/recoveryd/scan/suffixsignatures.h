#pragma once

#include <QByteArray>
#include <QString>

namespace services::recoveryd {

/// The formats whose structure a check by suffix looks at more closely.
enum class Structure : quint8 {
    None,
    Text,
    Image,
    Pdf,
    Zip,
    Ole,
    Iso,
    Film, ///< A chain of boxes, if it begins as one.
    SevenZip,
    Sqlite,
};

/// What files of a suffix have in common. Suffixes are often wrong within a family (a picture that
/// is called jpg and is a webp), so every member of the family will do as a beginning.
struct SuffixRule
{
    Structure structure = Structure::None;
    bool mayBeText = false; ///< Besides its signatures, as web pages that are called .xls.
    bool isKnown = false;
    QByteArray families; ///< Letters of the signature table.
};

/// The rule for a suffix in lower case; not known for those that say nothing about the contents.
SuffixRule ruleOf(const QString &suffix);

/// Whether one of the families' signatures stands in `head`, the first bytes of a file.
bool hasSignature(const QByteArray &families, const QByteArray &head);
/// Whether `head` begins as a format of any family that no text begins with.
bool hasForeignSignature(const QByteArray &head);

} // namespace services::recoveryd
