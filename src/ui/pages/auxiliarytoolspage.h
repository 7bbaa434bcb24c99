#pragma once

#include <QWidget>

class QFrame;
class QGridLayout;
struct ToolItem;

/// A catalogue of common disk tools. It runs none of them: the button of a card copies the command,
/// for the user to look at, adapt and run. GUI thread only.
class AuxiliaryToolsPage : public QWidget
{
    Q_OBJECT

public:
    explicit AuxiliaryToolsPage(QWidget *parent = nullptr);

signals:
    void backRequested();

private:
    QWidget *buildHeader();
    void buildToolCards();
    QFrame *buildCard(const ToolItem &tool);
    void copyCommand(const ToolItem &tool);

    QGridLayout *m_grid = nullptr;
};
