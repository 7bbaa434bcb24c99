#include "recoveryd/scan/suffixsignatures.h"

#include <QHash>
#include <QStringList>

#include <cstring>

namespace services::recoveryd {

namespace {

struct Signature
{
    template <int N>
    constexpr Signature(char ofFamily, int at, const char (&text)[N])
        : family(ofFamily)
        , offset(at)
        , bytes(text)
        , length(N - 1)
    {}

    char family;
    int offset;
    const char *bytes;
    int length;
};

// i: pictures, v: films, a: sound, p: PDF, o: OLE2, z: zip, r: RTF, q: SQLite, and one letter for
// each format that is never called otherwise.
constexpr Signature kSignatures[] = {
    {'i', 0, "\xFF\xD8\xFF"},
    {'i', 0, "\x89PNG\r\n\x1a\n"},
    {'i', 0, "GIF8"},
    {'i', 0, "BM"},
    {'i', 8, "WEBP"},
    {'i', 0, "II*\0"},
    {'i', 0, "MM\0*"},
    {'i', 0, "II+\0"},
    {'i', 0, "MM\0+"},
    {'i', 0, "IIRO"},
    {'i', 0, "IIRS"},
    {'i', 0, "IIU\0"},
    {'i', 0, "FUJIFILM"},
    {'i', 4, "ftyp"},
    {'i', 0, "8BPS"},
    {'i', 0, "\0\0\1\0"},
    {'i', 0, "\0\0\2\0"},
    {'i', 0, "\0\0\0\x0CjP  "},
    {'i', 0, "\xFF\x4F\xFF\x51"},
    {'i', 0, "\xFF\x0A"},
    {'i', 0, "AT&TFORM"},
    {'v', 4, "ftyp"},
    {'v', 4, "moov"},
    {'v', 4, "mdat"},
    {'v', 4, "wide"},
    {'v', 4, "free"},
    {'v', 4, "skip"},
    {'v', 4, "pnot"},
    {'v', 0, "RIFF"},
    {'v', 0, "\x1A\x45\xDF\xA3"},
    {'v', 0, "FLV\1"},
    {'v', 0, "\x30\x26\xB2\x75\x8E\x66\xCF\x11"},
    {'v', 0, "\0\0\1\xBA"},
    {'v', 0, "\0\0\1\xB3"},
    {'v', 0, "\0\0\0\1"},
    {'v', 0, "\x47"},
    {'v', 4, "\x47"},
    {'v', 0, ".RMF"},
    {'v', 0, "OggS"},
    {'a', 0, "ID3"},
    {'a', 0, "\xFF\xE2"},
    {'a', 0, "\xFF\xE3"},
    {'a', 0, "\xFF\xF1"},
    {'a', 0, "\xFF\xF2"},
    {'a', 0, "\xFF\xF3"},
    {'a', 0, "\xFF\xF8"},
    {'a', 0, "\xFF\xF9"},
    {'a', 0, "\xFF\xFA"},
    {'a', 0, "\xFF\xFB"},
    {'a', 0, "RIFF"},
    {'a', 0, "RF64"},
    {'a', 0, "fLaC"},
    {'a', 0, "OggS"},
    {'a', 4, "ftyp"},
    {'a', 0, "\x30\x26\xB2\x75\x8E\x66\xCF\x11"},
    {'a', 0, "#!AMR"},
    {'a', 0, "#!SILK"},
    {'a', 0, "\x02#!SILK"},
    {'a', 0, "FORM"},
    {'a', 0, "MThd"},
    {'a', 0, "MAC "},
    {'a', 0, "ADIF"},
    {'a', 0, "\x1A\x45\xDF\xA3"},
    {'p', 0, "%PDF-"},
    {'o', 0, "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1"},
    {'z', 0, "PK\x03\x04"},
    {'z', 0, "PK\x05\x06"},
    {'z', 0, "PK\x07\x08"},
    {'r', 0, "{\\rtf"},
    {'q', 0, "SQLite format 3"},
    {'7', 0, "7z\xBC\xAF\x27\x1C"},
    {'R', 0, "Rar!\x1A\x07"},
    {'T', 257, "ustar"},
    {'g', 0, "\x1F\x8B\x08"},
    {'b', 0, "BZh"},
    {'x', 0, "\xFD\x37zXZ\0"},
    {'Z', 0, "\x28\xB5\x2F\xFD"},
    {'e', 0,
     "\x7F"
     "ELF"},
    {'w', 0, "MZ"},
    {'d', 0, "AC10"},
    {'f', 0, "\0\1\0\0"},
    {'f', 0, "OTTO"},
    {'f', 0, "true"},
    {'f', 0, "ttcf"},
    {'f', 0, "wOFF"},
    {'f', 0, "wOF2"},
    {'D', 0, "!<arch>\n"},
    {'c', 0, "MSCF"},
    {'j', 0, "\xCA\xFE\xBA\xBE"},
    {'n', 0, "\xD4\xC3\xB2\xA1"},
    {'n', 0, "\xA1\xB2\xC3\xD4"},
    {'n', 0, "\x0A\x0D\x0D\x0A"},
};

// Beginnings that no text has. Pictures and films hold some that are short or plain words.
constexpr char kForeignFamilies[] = "pozq7RgxZe";

constexpr Signature kForeign[] = {
    {' ', 0, "\xFF\xD8\xFF"}, {' ', 0, "\x89PNG\r\n\x1a\n"}, {' ', 0, "GIF87a"},
    {' ', 0, "GIF89a"},       {' ', 8, "WEBPVP8"},           {' ', 0, "\x1A\x45\xDF\xA3"},
};

struct RuleRow
{
    const char *suffixes;
    const char *families;
    Structure structure;
    bool mayBeText;
};

constexpr RuleRow kRules[] = {
    {"jpg jpeg jpe jfif png gif bmp webp tif tiff heic heif avif psd ico cur jp2 jxl djvu cr2 nef "
     "arw dng cr3 orf rw2 raf pef srw",
     "i", Structure::Image, false},
    {"mp4 mov m4v 3gp 3g2 mkv webm avi flv wmv asf mpg mpeg vob m2ts mts rm rmvb", "v",
     Structure::Film, false},
    {"ts", "v", Structure::Film, true}, // a film, or TypeScript
    {"mp3 wav flac ogg oga opus aac m4a amr silk wma mid midi ape aif aiff", "a", Structure::Film,
     false},
    {"pdf", "p", Structure::Pdf, false},
    {"docx docm xlsx xlsm pptx pptm ppsx dotx xltx potx vsdx odt ods odp odg ott ofd epub apk jar "
     "war xmind aar ipa zip",
     "zo", Structure::Zip, false},
    {"doc dot xls xlt ppt pps pot wps wpt et ett dps dpt", "ozr", Structure::Ole, true},
    {"msg vsd msi", "o", Structure::Ole, false},
    {"rtf", "roz", Structure::Ole, false},
    {"7z", "7", Structure::SevenZip, false},
    {"rar", "R", Structure::None, false},
    {"gz tgz", "g", Structure::None, false},
    {"bz2 tbz2", "b", Structure::None, false},
    {"xz txz", "x", Structure::None, false},
    {"zst", "Z", Structure::None, false},
    {"elf", "e", Structure::None, false},
    {"exe dll sys ocx", "w", Structure::None, false},
    {"dwg", "d", Structure::None, false},
    {"ttf otf ttc woff woff2", "f", Structure::None, false},
    {"deb", "D", Structure::None, false},
    {"cab", "c", Structure::None, false},
    {"class", "j", Structure::None, false},
    {"pcap pcapng", "n", Structure::None, false},
    {"sqlite sqlite3", "q", Structure::Sqlite, false},
    {"iso", "", Structure::Iso, false},
    {"txt csv tsv md log json xml html htm xhtml svg css scss less js jsx tsx c h cc cpp cxx "
     "hpp hh py java kt go rs rb php pl sh bash bat ps1 sql yaml yml toml ini conf cmake eml "
     "vcf ics mbox srt ass tex properties diff patch vue qml pro gradle swift scala",
     "", Structure::Text, true},
};

QHash<QString, SuffixRule> makeRules()
{
    QHash<QString, SuffixRule> rules;
    for (const RuleRow &row : kRules) {
        SuffixRule rule;
        rule.structure = row.structure;
        rule.mayBeText = row.mayBeText;
        rule.isKnown = true;
        rule.families = row.families;
        const QStringList suffixes = QString::fromLatin1(row.suffixes).split(QLatin1Char(' '));
        for (const QString &suffix : suffixes)
            rules.insert(suffix, rule);
    }
    return rules;
}

bool stands(const Signature &signature, const QByteArray &head)
{
    return head.size() >= signature.offset + signature.length &&
           std::memcmp(head.constData() + signature.offset, signature.bytes,
                       size_t(signature.length)) == 0;
}

} // namespace

SuffixRule ruleOf(const QString &suffix)
{
    static const QHash<QString, SuffixRule> rules = makeRules();
    return rules.value(suffix);
}

bool hasSignature(const QByteArray &families, const QByteArray &head)
{
    for (const Signature &signature : kSignatures)
        if (families.contains(signature.family) && stands(signature, head))
            return true;
    return false;
}

bool hasForeignSignature(const QByteArray &head)
{
    for (const Signature &signature : kForeign)
        if (stands(signature, head))
            return true;
    return hasSignature(QByteArray(kForeignFamilies), head);
}

} // namespace services::recoveryd
