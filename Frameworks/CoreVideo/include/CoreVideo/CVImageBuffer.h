#pragma once

#include <CoreVideo/CVBuffer.h>

CF_EXTERN_C_BEGIN

typedef CVBufferRef CVImageBufferRef;

// Attachments that say how to read the colours.
CF_EXPORT const CFStringRef kCVImageBufferColorPrimariesKey;
CF_EXPORT const CFStringRef kCVImageBufferTransferFunctionKey;
CF_EXPORT const CFStringRef kCVImageBufferYCbCrMatrixKey;
CF_EXPORT const CFStringRef kCVImageBufferGammaLevelKey;
CF_EXPORT const CFStringRef kCVImageBufferICCProfileKey;
CF_EXPORT const CFStringRef kCVImageBufferChromaLocationTopFieldKey;
CF_EXPORT const CFStringRef kCVImageBufferChromaLocationBottomFieldKey;

// Attachments that say how to read the geometry.
CF_EXPORT const CFStringRef kCVImageBufferCleanApertureKey;
CF_EXPORT const CFStringRef kCVImageBufferPixelAspectRatioKey;
CF_EXPORT const CFStringRef kCVImageBufferFieldCountKey;
CF_EXPORT const CFStringRef kCVImageBufferFieldDetailKey;

// Values of the colour attachments.
CF_EXPORT const CFStringRef kCVImageBufferColorPrimaries_ITU_R_709_2;
CF_EXPORT const CFStringRef kCVImageBufferTransferFunction_ITU_R_709_2;
CF_EXPORT const CFStringRef kCVImageBufferYCbCrMatrix_ITU_R_709_2;
CF_EXPORT const CFStringRef kCVImageBufferYCbCrMatrix_ITU_R_601_4;

CF_EXTERN_C_END
