// The headers that nearly every page and dialog includes.
#pragma once

#include "precompiled_core.h"

#include <QApplication>
#include <QBoxLayout>
#include <QColor>
#include <QComboBox>
#include <QDialog>
#include <QEvent>
#include <QFrame>
#include <QIcon>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QPushButton>
#include <QStackedWidget>
#include <QStyle>
#include <QStyledItemDelegate>
#include <QTableView>
#include <QWidget>
