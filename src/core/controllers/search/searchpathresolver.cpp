#include "core/controllers/search/searchpathresolver.h"
