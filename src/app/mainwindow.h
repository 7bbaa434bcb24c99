#pragma once

#include "core/appmode.h"

#include <QMainWindow>

/// The one top-level window of the product.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindow(core::AppMode mode, QWidget *parent = nullptr);
    ~MainWindow() override;
};
