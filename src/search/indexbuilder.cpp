#include "search/indexbuilder.h"
