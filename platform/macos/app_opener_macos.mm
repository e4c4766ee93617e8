// The module that opens apps on macOS: the workspace (AppKit) opens them,
// and a hidden launch is watched through NSRunningApplication. Only
// SystemAppRunning loads it, the first time it opens an app (see
// core/apps/app_opener_module.h). Everything this file decides is in portable
// code (LaunchRequest, HiddenLaunchConfirmation); it only asks AppKit and
// reports back.
#import <AppKit/AppKit.h>

#include <dispatch/dispatch.h>

#include "core/apps/app_opener_module.h"
#include "core/apps/hidden_launch_confirmation.h"
#include "core/apps/launch_request.h"
#include "core/support/clock.h"

namespace holdenmere {

namespace {

NSString* toNSString(const std::string& text) {
    NSString* converted = [NSString stringWithUTF8String:text.c_str()];
    return converted != nil ? converted : @"";
}

std::string fromUTF8(const char* text, const char* fallback) { return text != nullptr ? text : fallback; }

void scheduleOnQueue(double delay, std::function<void()> work) {
    auto* heldWork = new std::function<void()>(std::move(work));
    dispatch_after(dispatch_time(DISPATCH_TIME_NOW, static_cast<int64_t>(delay * NSEC_PER_SEC)),
                   dispatch_get_global_queue(QOS_CLASS_USER_INITIATED, 0), ^{
                     (*heldWork)();
                     delete heldWork;
                   });
}

std::string describe(NSError* error) {
    std::string text = fromUTF8(error.localizedDescription.UTF8String, "unknown error");
    text += " [";
    text += fromUTF8(error.domain.UTF8String, "");
    text += " " + std::to_string(static_cast<long>(error.code)) + "]";
    return text;
}

SystemClock& moduleClock() {
    static SystemClock clock;
    return clock;
}

bool isDirectory(NSString* path) {
    BOOL directory = NO;
    return [[NSFileManager defaultManager] fileExistsAtPath:path isDirectory:&directory] && directory;
}

// Long: one workspace call whose completion block sets up the hidden-launch confirmation; its captures
// read best beside the call.
void beginOpening(const std::string& path, const OpenOptions& options, AppRunning::Completion completion) {
    auto request = std::make_shared<LaunchRequest>(std::move(completion));
    if (!isDirectory(toNSString(path))) {
        request->deliver(LaunchAttempt::failed("no application bundle at " + path));
        return;
    }
    if (options.timeLimit) request->startTimeLimit(scheduleOnQueue, *options.timeLimit);
    const bool hidden = options.hidden;
    const std::shared_ptr<LaunchCancellation> cancellation = options.cancellation;
    @autoreleasepool {
        NSWorkspaceOpenConfiguration* configuration = [NSWorkspaceOpenConfiguration configuration];
        configuration.hides = hidden;
        configuration.activates = options.activates;
        configuration.createsNewApplicationInstance = options.newInstance;
        configuration.addsToRecentItems = NO;
        NSMutableArray<NSString*>* arguments = [NSMutableArray array];
        for (const auto& argument : options.arguments) [arguments addObject:toNSString(argument)];
        configuration.arguments = arguments;

        NSURL* url = [NSURL fileURLWithPath:toNSString(path) isDirectory:YES];
        [[NSWorkspace sharedWorkspace]
            openApplicationAtURL:url
                   configuration:configuration
               completionHandler:^(NSRunningApplication* app, NSError* error) {
                 request->openReturned();
                 if (error != nil) {
                     request->deliver(LaunchAttempt::failed(describe(error)));
                     return;
                 }
                 if (app == nil) {
                     request->deliver(LaunchAttempt::failed("LaunchServices returned no application and no error"));
                     return;
                 }
                 if (!hidden) {
                     request->deliver(LaunchAttempt::opened());
                     return;
                 }
                 __weak NSRunningApplication* watched = app;
                 const pid_t pid = app.processIdentifier;
                 HiddenLaunchConfirmation::Hooks hooks{[] { return moduleClock().uptime(); }, {}, scheduleOnQueue};
                 HiddenLaunchConfirmation::Application application{
                     [watched, pid] {
                         HiddenAppState state;
                         NSRunningApplication* current = watched;
                         if (current == nil) {
                             state.referenceLost = true;
                             return state;
                         }
                         state.terminated = current.isTerminated;
                         state.listed = [NSRunningApplication runningApplicationWithProcessIdentifier:pid] != nil;
                         state.finishedLaunching = current.isFinishedLaunching;
                         state.hidden = current.isHidden;
                         state.active = current.isActive;
                         return state;
                     },
                     [watched] {
                         NSRunningApplication* current = watched;
                         return current != nil && [current hide];
                     }};
                 HiddenLaunchConfirmation::start(
                     {}, hooks, application, [request](LaunchAttempt attempt) { request->deliver(std::move(attempt)); },
                     cancellation);
               }];
    }
}

}  // namespace
}  // namespace holdenmere

extern "C" {

__attribute__((visibility("default"))) void holdenmere_app_opener_begin(const std::string& path,
                                                                        const holdenmere::OpenOptions& options,
                                                                        holdenmere::AppRunning::Completion completion);

__attribute__((visibility("default"))) extern const int holdenmere_app_opener_interface =
    HOLDENMERE_APP_OPENER_INTERFACE;

__attribute__((visibility("default"))) void holdenmere_app_opener_begin(const std::string& path,
                                                                        const holdenmere::OpenOptions& options,
                                                                        holdenmere::AppRunning::Completion completion) {
    holdenmere::beginOpening(path, options, std::move(completion));
}

}  // extern "C"
