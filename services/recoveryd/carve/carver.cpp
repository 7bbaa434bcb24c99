#include "recoveryd/carve/carver.h"

#include "recoveryd/carve/archives/archivecarvers.h"
#include "recoveryd/carve/documents/documentcarvers.h"
#include "recoveryd/carve/images/imagecarvers.h"
#include "recoveryd/carve/media/mediacarvers.h"

namespace services::recoveryd {

void CarvedFile::setKind(const char *suffix)
{
    extension = QLatin1String(suffix);
    type = extension.toUpper();
}

void CarvedFile::setEnd(qint64 end, Evidence seen)
{
    length = end;
    examined = end;
    evidence = seen;
}

const QVector<Carver> &carvers()
{
    static const QVector<Carver> all = {
        {{0, "\xFF\xD8\xFF"}, carveJpeg},
        {{0, "\x89PNG\r\n\x1a\n"}, carvePng},
        {{0, "GIF8"}, carveGif},
        {{0, "BM"}, carveBmp},
        {{0, "II*\0"}, carveTiff},
        {{0, "MM\0*"}, carveTiff},
        {{0, "8BPS\0"}, carvePsd},
        {{0, "\0\0\1\0"}, carveIcon},
        {{0, "\0\0\2\0"}, carveIcon},
        {{0, "RIFF"}, carveRiff},
        {{0, "RF64"}, carveRiff},
        {{0, "FORM"}, carveForm},
        {{4, "ftyp"}, carveBoxes},
        {{4, "moov"}, carveBoxes},
        {{4, "mdat"}, carveBoxes},
        {{4, "wide"}, carveBoxes},
        {{4, "jP  "}, carveBoxes},
        {{0, "\x1A\x45\xDF\xA3"}, carveMatroska},
        {{0, "FLV\1"}, carveFlv},
        {{0, "\x30\x26\xB2\x75\x8E\x66\xCF\x11"}, carveAsf},
        {{0, "\0\0\1\xBA"}, carveProgramStream},
        {{0, "\x47\x40"}, carveTransportStream},
        {{0, "ID3"}, carveMp3},
        {{0, "\xFF\xFB"}, carveMp3},
        {{0, "\xFF\xFA"}, carveMp3},
        {{0, "\xFF\xF3"}, carveMp3},
        {{0, "\xFF\xF2"}, carveMp3},
        {{0, "\xFF\xF1"}, carveAac},
        {{0, "\xFF\xF9"}, carveAac},
        {{0, "fLaC\0"}, carveFlac},
        {{0, "OggS\0"}, carveOgg},
        {{0, "#!AMR"}, carveAmr},
        {{0, "#!SILK_V3"}, carveSilk},
        {{0, "\x02#!SILK_V3"}, carveSilk},
        {{0, "MThd\0\0\0\6"}, carveMidi},
        {{0, "%PDF-"}, carvePdf},
        {{0, "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1"}, carveOle},
        {{0, "{\\rtf"}, carveRtf},
        {{0, "SQLite format 3\0"}, carveSqlite},
        {{0, "\x7F"
             "ELF"},
         carveElf},
        {{0, "MZ"}, carvePe},
        {{0, "AC10"}, carveDwg},
        {{0, "\0\1\0\0"}, carveFont},
        {{0, "OTTO"}, carveFont},
        {{0, "true"}, carveFont},
        {{0, "ttcf"}, carveFont},
        {{0, "wOFF"}, carveWebFont},
        {{0, "wOF2"}, carveWebFont},
        {{0, "\xD4\xC3\xB2\xA1"}, carveCapture},
        {{0, "PK\x03\x04"}, carveZip},
        {{0, "7z\xBC\xAF\x27\x1C"}, carveSevenZip},
        {{0, "Rar!\x1A\x07"}, carveRar},
        {{257, "ustar"}, carveTar},
        {{0, "\x1F\x8B\x08"}, carveCompressed},
        {{0, "BZh"}, carveCompressed},
        {{0, "\xFD\x37zXZ\0"}, carveCompressed},
        {{0, "\x28\xB5\x2F\xFD"}, carveCompressed},
        {{0, "!<arch>\n"}, carveAr},
        {{0, "MSCF\0\0\0\0"}, carveCab},
        {{32769, "CD001\1"}, carveIso},
    };
    return all;
}

} // namespace services::recoveryd
