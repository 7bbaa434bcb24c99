#include "core/appmode.h"
