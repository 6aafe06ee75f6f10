#pragma once

#include <CoreMedia/CMBase.h>
#include <CoreMedia/CMFormatDescription.h>
#include <CoreMedia/CMSampleBuffer.h>
#include <CoreMedia/CMSync.h>
#include <CoreMedia/CMTime.h>
