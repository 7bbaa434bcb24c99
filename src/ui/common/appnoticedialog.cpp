#include "ui/common/appnoticedialog.h"
