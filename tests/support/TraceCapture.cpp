#include "TraceCapture.h"
