// What nearly every test includes. Compiled in advance in some builds; not to be included.
#ifndef SORREL_TESTS_TEST_HEADERS_HPP
#define SORREL_TESTS_TEST_HEADERS_HPP

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#endif // SORREL_TESTS_TEST_HEADERS_HPP
