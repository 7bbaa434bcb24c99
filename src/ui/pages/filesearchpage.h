#pragma once

#include "core/appmode.h"
#include "core/controllers/search/searchpathresolver.h"

#include <QWidget>

/// File search by name and by content over the local index.
class FileSearchPage : public QWidget
{
    Q_OBJECT

public:
    explicit FileSearchPage(core::AppMode mode, QWidget *parent = nullptr);
    /// The same over a given search context, which tests and the guided tour make themselves.
    FileSearchPage(core::AppMode mode,
                   const core::controllers::search::SearchRuntimePaths &paths,
                   QWidget *parent = nullptr);
    ~FileSearchPage() override;
};
