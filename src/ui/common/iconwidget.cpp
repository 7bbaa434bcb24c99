#include "ui/common/iconwidget.h"
