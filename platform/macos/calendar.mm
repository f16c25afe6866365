#import "platform/macos/cocoa_text.h"

#include "platform/calendar.h"

namespace platform {

LocalDateTime localDateTime(UnixTime time)
{
    return macos::guarded(LocalDateTime(), [time]() -> LocalDateTime {
        NSDate* date = [NSDate dateWithTimeIntervalSince1970:static_cast<NSTimeInterval>(time)];
        NSCalendar* calendar = [[NSCalendar alloc] initWithCalendarIdentifier:NSCalendarIdentifierGregorian];
        const NSCalendarUnit units = NSCalendarUnitYear | NSCalendarUnitMonth | NSCalendarUnitDay | NSCalendarUnitHour |
                                     NSCalendarUnitMinute | NSCalendarUnitSecond;
        NSDateComponents* parts = [calendar components:units fromDate:date];
#if !__has_feature(objc_arc)
        [calendar autorelease];
#endif
        return {static_cast<int>([parts year]), static_cast<int>([parts month]),  static_cast<int>([parts day]),
                static_cast<int>([parts hour]), static_cast<int>([parts minute]), static_cast<int>([parts second])};
    });
}

} // namespace platform
