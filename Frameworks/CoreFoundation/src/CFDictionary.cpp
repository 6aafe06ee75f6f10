#include <CoreFoundation/CFDictionary.h>
