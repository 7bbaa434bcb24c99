// Makes the tables of Han characters from the Unihan files of Debian's unicode-data, at build time:
//     morvane_maketables FOLDER OUTPUT
// FOLDER holds Unihan_Variants.txt.bz2 and Unihan_Readings.txt.bz2. An empty FOLDER makes empty
// tables: traditional and simplified characters stay apart then, and names have no pinyin.

#include <QFile>
#include <QMap>
#include <QRegularExpression>
#include <QSet>
#include <QStringList>
#include <QTextStream>
#include <QVector>

#include <bzlib.h>

namespace {

constexpr uint firstHan = 0x3400;
constexpr uint lastHan = 0x9FFF;

/// Field name to value, by character. Only characters of the table's range are kept.
using Fields = QMap<uint, QMap<QByteArray, QByteArray>>;

bool isHan(uint character)
{
    return character >= firstHan && character <= lastHan;
}

bool readUnihan(const QString &path, Fields *fields)
{
    FILE *file = fopen(QFile::encodeName(path).constData(), "rb");
    if (!file)
        return false;
    int status = BZ_OK;
    BZFILE *packed = BZ2_bzReadOpen(&status, file, 0, 0, nullptr, 0);
    QByteArray text;
    char buffer[65536];
    while (status == BZ_OK) {
        const int size = BZ2_bzRead(&status, packed, buffer, sizeof buffer);
        if (status == BZ_OK || status == BZ_STREAM_END)
            text.append(buffer, size);
    }
    const bool ok = status == BZ_STREAM_END;
    BZ2_bzReadClose(&status, packed);
    fclose(file);
    for (const QByteArray &line : text.split('\n')) {
        const QList<QByteArray> columns = line.split('\t');
        if (columns.size() != 3 || !columns.at(0).startsWith("U+"))
            continue;
        const uint character = columns.at(0).mid(2).toUInt(nullptr, 16);
        if (isHan(character))
            (*fields)[character].insert(columns.at(1), columns.at(2));
    }
    return ok;
}

/// "U+4E7E U+5E72<kMatthews" as characters, without `self` and what lies outside the range.
QVector<uint> characters(const QByteArray &value, uint self)
{
    QVector<uint> found;
    for (const QByteArray &word : value.split(' ')) {
        const uint character = word.mid(2).split('<').first().toUInt(nullptr, 16);
        if (isHan(character) && character != self)
            found.append(character);
    }
    return found;
}

/// Each character with the one that stands for it. Simplified forms come first; semantic variants
/// are followed only from characters out of common use into it, or unlike words would be joined.
QMap<uint, uint> foldedForms(const Fields &variants, const Fields &readings)
{
    QMap<uint, uint> target;
    for (auto it = variants.cbegin(); it != variants.cend(); ++it) {
        const QVector<uint> simple = characters(it->value("kSimplifiedVariant"), it.key());
        if (!simple.isEmpty())
            target.insert(it.key(), simple.first());
    }
    for (auto it = variants.cbegin(); it != variants.cend(); ++it) {
        for (uint traditional : characters(it->value("kTraditionalVariant"), it.key())) {
            if (!target.contains(traditional) && target.value(it.key()) != traditional)
                target.insert(traditional, it.key());
        }
    }
    const auto isCommon = [&readings](uint character) {
        return readings.value(character).contains("kTGHZ2013");
    };
    for (auto it = variants.cbegin(); it != variants.cend(); ++it) {
        if (target.contains(it.key()) || isCommon(it.key()))
            continue;
        for (uint other : characters(it->value("kSemanticVariant"), it.key())) {
            if (isCommon(target.value(other, other))) {
                target.insert(it.key(), other);
                break;
            }
        }
    }
    for (auto it = target.begin(); it != target.end(); ++it) {
        QSet<uint> seen{it.key()};
        while (target.contains(*it) && !seen.contains(*it)) {
            seen.insert(*it);
            *it = target.value(*it);
        }
    }
    for (auto it = target.begin(); it != target.end();)
        it = it.key() == *it ? target.erase(it) : it + 1;
    return target;
}

/// "lǜ" as it is typed: without its tone, ü as v.
QString typed(const QString &syllable)
{
    QString text;
    const QString parts = syllable.normalized(QString::NormalizationForm_D).toLower();
    for (const QChar c : parts) {
        if (c == QChar(0x308) && text.endsWith(QLatin1Char('u')))
            text[text.size() - 1] = QLatin1Char('v');
        else if (c >= QLatin1Char('a') && c <= QLatin1Char('z'))
            text += c;
    }
    return text;
}

QStringList syllables(const QMap<QByteArray, QByteArray> &fields)
{
    QSet<QString> found;
    const auto add = [&found](const QString &syllable) {
        const QString text = typed(syllable);
        if (text.isEmpty())
            return;
        found.insert(text);
        // Many type a u for the ü.
        found.insert(QString(text).replace(QLatin1Char('v'), QLatin1Char('u')));
    };
    static const QRegularExpression brackets(QStringLiteral("\\([^)]*\\)"));
    for (const char *key : {"kMandarin", "kHanyuPinlu", "kHanyuPinyin", "kXHC1983", "kTGHZ2013"}) {
        const QString value = QString::fromUtf8(fields.value(key)).remove(brackets);
        for (const QString &entry : value.split(QLatin1Char(' '))) {
            for (const QString &syllable :
                 entry.section(QLatin1Char(':'), -1).split(QLatin1Char(',')))
                add(syllable);
        }
    }
    QStringList sorted = found.values();
    sorted.sort();
    return sorted;
}

template <typename Items, typename Text>
void writeList(QTextStream &out, const QString &head, const Items &items, Text text)
{
    out << head << " = {";
    int column = 0;
    for (const auto &item : items)
        out << (column++ % 12 == 0 ? "\n    " : " ") << text(item) << ',';
    if (items.isEmpty()) // C++ has no empty arrays; the counts are 0.
        out << "{}";
    out << "};\n";
}

void writeTables(QTextStream &out, const QMap<uint, uint> &forms, const Fields &readings)
{
    QStringList names;
    QMap<QString, int> numbers;
    QVector<int> starts;
    QVector<int> list;
    for (uint character = firstHan; !readings.isEmpty() && character <= lastHan; ++character) {
        starts.append(list.size());
        for (const QString &syllable : syllables(readings.value(character))) {
            if (!numbers.contains(syllable)) {
                numbers.insert(syllable, names.size());
                names.append(syllable);
            }
            list.append(numbers.value(syllable));
        }
    }
    if (!starts.isEmpty())
        starts.append(list.size());
    const auto plain = [](int number) {
        return QString::number(number);
    };
    out << "// Made by morvane_maketables.\n#include \"search/query/hantables.h\"\n\n"
           "namespace search::query {\n\nconst int hanVariantCount = "
        << forms.size() << ";\nconst int hanReadingCount = " << list.size() << ";\n";
    writeList(out, QStringLiteral("const HanVariant hanVariants[]"), forms.keys(), [&](uint from) {
        return QStringLiteral("{%1, %2}").arg(from).arg(forms.value(from));
    });
    writeList(out, QStringLiteral("const char *const pinyinSyllables[]"), names,
              [](const QString &name) { return QLatin1Char('"') + name + QLatin1Char('"'); });
    writeList(out, QStringLiteral("const unsigned hanReadingStarts[]"), starts, plain);
    writeList(out, QStringLiteral("const unsigned short hanReadings[]"), list, plain);
    out << "\n} // namespace search::query\n";
}

} // namespace

int main(int argc, char *argv[])
{
    if (argc != 3)
        return 2;
    const QString folder = QFile::decodeName(argv[1]);
    Fields variants;
    Fields readings;
    if (!folder.isEmpty() &&
        (!readUnihan(folder + QLatin1String("/Unihan_Variants.txt.bz2"), &variants) ||
         !readUnihan(folder + QLatin1String("/Unihan_Readings.txt.bz2"), &readings))) {
        QTextStream(stderr) << folder << ": no Unihan files that can be read\n";
        return 1;
    }
    QFile output(QFile::decodeName(argv[2]));
    if (!output.open(QIODevice::WriteOnly))
        return 1;
    QTextStream out(&output);
    writeTables(out, foldedForms(variants, readings), readings);
    out.flush();
    return output.error() == QFile::NoError ? 0 : 1;
}
