#include "FakeVela.h"
