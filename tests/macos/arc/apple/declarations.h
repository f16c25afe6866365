// What macOS declares and GNUstep doesn't, of what platform/macos uses there: Apple's documentation in our words, read
// before each file when it is compiled as for a Mac.
#pragma once

#import <AppKit/AppKit.h>
#import <Foundation/Foundation.h>

#include <sys/stat.h>

@interface NSFileManager (OnAMac)
- (NSArray*)subpathsOfDirectoryAtPath:(NSString*)path error:(NSError**)error;
@end

@interface NSApplication (OnAMac)
- (BOOL)setActivationPolicy:(NSInteger)policy;
@end

// stat(2)
#define st_atimespec st_atim
#define st_mtimespec st_mtim
#define st_birthtimespec st_ctim
