#include "search/searchindexdb.h"
