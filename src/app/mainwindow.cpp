#include "app/mainwindow.h"
