#include "ui/common/theme.h"
