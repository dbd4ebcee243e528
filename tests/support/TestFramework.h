#pragma once

// Compiled once for all tests: the framework, and what nearly every test or header includes.
// Each source still includes what it uses.
#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
