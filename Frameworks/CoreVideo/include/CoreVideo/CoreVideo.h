#pragma once

#include <CoreVideo/CVBase.h>
#include <CoreVideo/CVBuffer.h>
#include <CoreVideo/CVImageBuffer.h>
#include <CoreVideo/CVPixelBuffer.h>
#include <CoreVideo/CVPixelBufferIOSurface.h>
#include <CoreVideo/CVPixelBufferPool.h>
#include <CoreVideo/CVReturn.h>
