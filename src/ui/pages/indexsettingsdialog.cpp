#include "ui/pages/indexsettingsdialog.h"
