#pragma once

#include <QtTest/qtestcase.h>

// What comes in an instant on an idle machine may take long on one that builds at the same time. Every test is compiled
// with this.
#undef QTRY_VERIFY
#define QTRY_VERIFY(expression) QTRY_VERIFY_WITH_TIMEOUT((expression), 30000)
#undef QTRY_COMPARE
#define QTRY_COMPARE(expression, expected) QTRY_COMPARE_WITH_TIMEOUT((expression), expected, 30000)
