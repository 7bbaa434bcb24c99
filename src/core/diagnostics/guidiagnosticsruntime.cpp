#include "core/diagnostics/guidiagnosticsruntime.h"
