#include <CoreMedia/CoreMedia.h>
