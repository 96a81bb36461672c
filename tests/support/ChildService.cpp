#include "ChildService.h"
