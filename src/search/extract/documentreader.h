#pragma once

#include "search/extract/zipxml.h"

#include <QString>
#include <QStringList>

#include <atomic>

namespace search {

struct ToolCall;
struct WpsFormat;
class ToolRunner;

/// Reads the text of one file by the chain of tools that its suffix stands for. Used by one thread.
class DocumentReader
{
public:
    DocumentReader(ToolRunner &tools, const QString &path, const std::atomic_bool *cancel);

    /// The text, empty if there is none. `maxBytes` limits plain files only.
    QString read(int maxBytes);

private:
    QString readPlain(int maxBytes) const;
    QString readRtf();
    QString readOfd();
    QString readWps(const WpsFormat &format);
    QString readWpsOle(const WpsFormat &format);
    QString extractViaTool(const ToolCall &call);
    QString extractViaToolLogged(const ToolCall &call, const QString &label);
    void logExtraction(const QString &label, const QString &tool, const QString &text) const;

    ToolRunner &m_tools;
    const QString m_path;
    const std::atomic_bool *const m_cancel;
    ZipDocument m_zip;
};

} // namespace search
