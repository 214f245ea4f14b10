// What the host guide's snippets take for granted.
#pragma once

#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "qdcore/core.h"
#include "qdcore/xml.h"
#include "qdparam/qdparam.hpp"
#include "qdparam/staticsource.h"
