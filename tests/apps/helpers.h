// The apps tests use the shared test support under their own namespace.
#pragma once

#include "tests/support/files.h"
#include "tests/support/process.h"
#include "tests/support/raw_client.h"
#include "tests/support/temp_dir.h"

namespace apps_test {
using namespace testsupport;
}  // namespace apps_test
