#include "search/indexwatcher.h"
