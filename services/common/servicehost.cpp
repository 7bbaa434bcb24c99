#include "common/servicehost.h"
