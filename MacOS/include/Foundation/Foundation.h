#pragma once

// The classes of Foundation that we use, and of those the methods that we call. Our own declarations of the
// documented interface.

#include <Foundation/NSArray.h>
#include <Foundation/NSBundle.h>
#include <Foundation/NSData.h>
#include <Foundation/NSDictionary.h>
#include <Foundation/NSEnumerator.h>
#include <Foundation/NSError.h>
#include <Foundation/NSKeyValueObserving.h>
#include <Foundation/NSObjCRuntime.h>
#include <Foundation/NSProcessInfo.h>
#include <Foundation/NSSet.h>
#include <Foundation/NSString.h>
#include <Foundation/NSURL.h>
#include <Foundation/NSUUID.h>
#include <Foundation/NSValue.h>
#include <Foundation/NSXPCConnection.h>
