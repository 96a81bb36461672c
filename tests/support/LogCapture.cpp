#include "LogCapture.h"
