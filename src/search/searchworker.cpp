#include "search/searchworker.h"
