#include "ServiceHarness.h"
