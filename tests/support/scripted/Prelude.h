// The scripted platform, and by their bare names what nearly every test on it uses. For the sources of tests alone.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "scripted/Platform.h"

using scripted::error;
using scripted::kNull;
using scripted::LogLines;
using scripted::OtherFailure;
using scripted::platform;
using scripted::PlatformTest;
using scripted::Point;
using scripted::Reply;
using scripted::Row;
using scripted::SettingWrite;
using scripted::trace;
using scripted::Value;
using scripted::warning;
using testing::ElementsAre;
using testing::IsEmpty;
