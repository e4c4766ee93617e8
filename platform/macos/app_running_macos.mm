// SystemAppRunning on macOS: the workspace opens apps and reports running
// ones. Everything this file decides is in portable code (LaunchRequest,
// HiddenLaunchConfirmation); it only asks AppKit and reports back.
#import <AppKit/AppKit.h>

#include <dispatch/dispatch.h>

#include "core/apps/app_running.h"
#include "core/apps/hidden_launch_confirmation.h"
#include "core/apps/launch_request.h"
#include "core/support/clock.h"

namespace holdenmere {

struct SystemAppRunning::Implementation {
    SystemClock clock;
};

namespace {

NSString* toNSString(const std::string& text) { return [NSString stringWithUTF8String:text.c_str()] ?: @""; }

void scheduleOnQueue(double delay, std::function<void()> work) {
    auto* heldWork = new std::function<void()>(std::move(work));
    dispatch_after(dispatch_time(DISPATCH_TIME_NOW, static_cast<int64_t>(delay * NSEC_PER_SEC)),
                   dispatch_get_global_queue(QOS_CLASS_USER_INITIATED, 0), ^{
                     (*heldWork)();
                     delete heldWork;
                   });
}

std::string describe(NSError* error) {
    std::string text = error.localizedDescription.UTF8String ?: "unknown error";
    text += " [";
    text += error.domain.UTF8String ?: "";
    text += " " + std::to_string(static_cast<long>(error.code)) + "]";
    return text;
}

}  // namespace

SystemAppRunning::SystemAppRunning() : implementation_(new Implementation) {}

SystemAppRunning::~SystemAppRunning() { delete implementation_; }

std::vector<int> SystemAppRunning::processIdentifiers(const std::string& bundleIdentifier) {
    std::vector<int> found;
    @autoreleasepool {
        for (NSRunningApplication* app in
             [NSRunningApplication runningApplicationsWithBundleIdentifier:toNSString(bundleIdentifier)]) {
            if (!app.isTerminated) found.push_back(app.processIdentifier);
        }
    }
    return found;
}

std::optional<std::vector<std::string>> SystemAppRunning::arguments(int) {
    // NSRunningApplication does not tell them: here a running app is what
    // the workspace lists.
    return std::nullopt;
}

bool SystemAppRunning::exists(const std::string& path) {
    BOOL isDirectory = NO;
    return [[NSFileManager defaultManager] fileExistsAtPath:toNSString(path) isDirectory:&isDirectory] && isDirectory;
}

void SystemAppRunning::begin(const std::string& path, const OpenOptions& options, Completion completion) {
    auto request = std::make_shared<LaunchRequest>(std::move(completion));
    if (!exists(path)) {
        request->deliver(LaunchAttempt::failed("no application bundle at " + path));
        return;
    }
    if (options.timeLimit) request->startTimeLimit(scheduleOnQueue, *options.timeLimit);
    Implementation* implementation = implementation_;
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
                 HiddenLaunchConfirmation::Hooks hooks{[implementation] { return implementation->clock.uptime(); },
                                                       {}, scheduleOnQueue};
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

}  // namespace holdenmere
