// Alerts for the person at the screen.
//
// Backed by zenity or, where that is not there or fails at once, kdialog, when the user has a
// display, and by standard error otherwise (frameworks/CoreFoundation/UserNotification).
// What is here: an alert with one button. Different from the Mac: the icon is not shown, because
// neither program reads ICNS files. Without a dialog the alert is written to standard error, nobody
// is waited for, and the answer is kCFUserNotificationCancelResponse
// (CFUserNotification_test: Alert_WithoutADisplay_IsWrittenAndNotWaitedFor).
//
// Ownership: nothing is handed over. Threads: any. Failure: as said below.
#pragma once

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFDate.h>
#include <CoreFoundation/CFString.h>
#include <CoreFoundation/CFURL.h>

extern "C" {

enum : CFOptionFlags {
    kCFUserNotificationStopAlertLevel = 0,
    kCFUserNotificationNoteAlertLevel = 1,
    kCFUserNotificationCautionAlertLevel = 2,
    kCFUserNotificationPlainAlertLevel = 3
};

enum : CFOptionFlags {
    kCFUserNotificationDefaultResponse = 0,
    kCFUserNotificationCancelResponse = 3
};

// Shows an alert and returns when it has been answered: 0, or a result code, paramErr for what is
// not offered here: a time-out, any flag but a level, a sound, texts of a bundle, titles of
// buttons. The header is required, the message and the place for the answer are not.
SInt32 CFUserNotificationDisplayAlert(CFTimeInterval timeout, CFOptionFlags flags, CFURLRef iconURL,
                                      CFURLRef soundURL, CFURLRef localizationURL,
                                      CFStringRef alertHeader, CFStringRef alertMessage,
                                      CFStringRef defaultButtonTitle,
                                      CFStringRef alternateButtonTitle,
                                      CFStringRef otherButtonTitle, CFOptionFlags* responseFlags);

}  // extern "C"
