#include "tests/support/TestFramework.h"
