// Binary contract between the activity-recognition HAL and the legacy hardware module below it:
// the module and device records, the two function tables the device hands out, the callback
// tables handed down, and the event records that cross the boundary. Every size, offset and
// slot order here is fixed; the static_asserts at the end hold them in place.
#pragma once

// The contract is the 64-bit one (8-byte pointers and table slots): a 32-bit build stops here with
// one message, and its layout checks below are left out rather than reported one by one. The
// device build declares the modules that use this header 64-bit only (compile_multilib: "64").
#if !defined(__LP64__)
#error "the legacy activity-recognition contract is 64-bit only: build for a 64-bit ABI"
#endif

#include <hardware/hardware.h>
#include <stddef.h>
#include <stdint.h>

__BEGIN_DECLS

#define ACTIVITY_RECOGNITION_HARDWARE_MODULE_ID "activity_recognition"
#define ACTIVITY_RECOGNITION_HIDL_DEVICE "activity_recognition_hidl"

// Extra values of an extended request or event. `extra` holds a text of at most 32 bytes: a NUL
// follows it when it is shorter, a text of exactly 32 bytes carries no terminator.
typedef struct other_params {
    double params[4];
    char extra[32];
} other_params;

typedef struct activity_event {
    uint32_t event_type;
    uint32_t activity;
    int64_t timestamp;
    int32_t confidence;
} activity_event;

typedef struct ar_context_event {
    uint32_t event_type;
    uint32_t activity;  // activity or environment number
    int64_t timestamp;
    int32_t confidence;
    int32_t status;
    other_params params;
} ar_context_event;

// Handed down by the HAL; the module may call these at any time after register_callbacks. The
// arrays need stay valid only for the duration of the call.
typedef struct activity_callbacks {
    void (*activity_changed)(const activity_event* events, int count);
    void (*activity_extend_changed)(const ar_context_event* events, int count);
} activity_callbacks;

typedef struct environment_callbacks {
    void (*environment_changed)(const ar_context_event* events, int count);
} environment_callbacks;

// Entries answer 0 for success. The lists and records handed back through out-pointers stay
// owned by the module.
typedef struct activity_interface {
    int (*register_callbacks)(const activity_callbacks* callbacks);
    int (*get_supported_activities_list)(char const* const** list);
    int (*enable_activity_event)(uint32_t activity, uint32_t event_type, int64_t report_latency_ns);
    int (*enable_activity_event_extend)(uint32_t activity, uint32_t event_type,
                                        int64_t report_latency_ns, other_params* params);
    int (*get_current_activity)(ar_context_event** events);
    int (*disable_activity_event)(uint32_t activity, uint32_t event_type);
    int (*flush)(void);
} activity_interface;

typedef struct environment_interface {
    int (*register_callbacks)(const environment_callbacks* callbacks);
    int (*get_supported_environments_list)(char const* const** list);
    int (*init_environment)(uint32_t environment, const other_params* params);
    int (*exit_environment)(uint32_t environment, const other_params* params);
    int (*enable_environment)(uint32_t environment, uint32_t event_type, int64_t report_latency_ns,
                              const other_params* params);
    int (*disable_environment)(uint32_t environment, uint32_t event_type);
    int (*get_current_environment)(ar_context_event** events);
} environment_interface;

typedef struct activity_recognition_module {
    hw_module_t common;
} activity_recognition_module;

// The tables stay valid until common.close; either getter answers null when the module lacks
// that side.
typedef struct activity_recognition_device {
    hw_device_t common;
    const activity_interface* (*get_activity_interface)(struct activity_recognition_device* dev);
    const environment_interface* (*get_environment_interface)(
            struct activity_recognition_device* dev);
} activity_recognition_device;

__END_DECLS

#if defined(__LP64__)
#define AR_LEGACY_CHECK_OFFSET(type, field, offset) \
    static_assert(offsetof(type, field) == (offset), #type "." #field " moved")

static_assert(sizeof(other_params) == 64, "other_params size");
AR_LEGACY_CHECK_OFFSET(other_params, params, 0);
AR_LEGACY_CHECK_OFFSET(other_params, extra, 32);

static_assert(sizeof(activity_event) == 24, "activity_event size");
AR_LEGACY_CHECK_OFFSET(activity_event, event_type, 0);
AR_LEGACY_CHECK_OFFSET(activity_event, activity, 4);
AR_LEGACY_CHECK_OFFSET(activity_event, timestamp, 8);
AR_LEGACY_CHECK_OFFSET(activity_event, confidence, 16);

static_assert(sizeof(ar_context_event) == 88, "ar_context_event size");
AR_LEGACY_CHECK_OFFSET(ar_context_event, event_type, 0);
AR_LEGACY_CHECK_OFFSET(ar_context_event, activity, 4);
AR_LEGACY_CHECK_OFFSET(ar_context_event, timestamp, 8);
AR_LEGACY_CHECK_OFFSET(ar_context_event, confidence, 16);
AR_LEGACY_CHECK_OFFSET(ar_context_event, status, 20);
AR_LEGACY_CHECK_OFFSET(ar_context_event, params, 24);

static_assert(sizeof(activity_callbacks) == 2 * sizeof(void*), "activity_callbacks size");
AR_LEGACY_CHECK_OFFSET(activity_callbacks, activity_changed, 0);
AR_LEGACY_CHECK_OFFSET(activity_callbacks, activity_extend_changed, 8);
static_assert(sizeof(environment_callbacks) == sizeof(void*), "environment_callbacks size");
AR_LEGACY_CHECK_OFFSET(environment_callbacks, environment_changed, 0);

static_assert(sizeof(activity_interface) == 7 * sizeof(void*), "activity_interface size");
AR_LEGACY_CHECK_OFFSET(activity_interface, register_callbacks, 0);
AR_LEGACY_CHECK_OFFSET(activity_interface, get_supported_activities_list, 8);
AR_LEGACY_CHECK_OFFSET(activity_interface, enable_activity_event, 16);
AR_LEGACY_CHECK_OFFSET(activity_interface, enable_activity_event_extend, 24);
AR_LEGACY_CHECK_OFFSET(activity_interface, get_current_activity, 32);
AR_LEGACY_CHECK_OFFSET(activity_interface, disable_activity_event, 40);
AR_LEGACY_CHECK_OFFSET(activity_interface, flush, 48);

static_assert(sizeof(environment_interface) == 7 * sizeof(void*), "environment_interface size");
AR_LEGACY_CHECK_OFFSET(environment_interface, register_callbacks, 0);
AR_LEGACY_CHECK_OFFSET(environment_interface, get_supported_environments_list, 8);
AR_LEGACY_CHECK_OFFSET(environment_interface, init_environment, 16);
AR_LEGACY_CHECK_OFFSET(environment_interface, exit_environment, 24);
AR_LEGACY_CHECK_OFFSET(environment_interface, enable_environment, 32);
AR_LEGACY_CHECK_OFFSET(environment_interface, disable_environment, 40);
AR_LEGACY_CHECK_OFFSET(environment_interface, get_current_environment, 48);

AR_LEGACY_CHECK_OFFSET(activity_recognition_module, common, 0);
AR_LEGACY_CHECK_OFFSET(activity_recognition_device, common, 0);
AR_LEGACY_CHECK_OFFSET(activity_recognition_device, get_activity_interface, sizeof(hw_device_t));
AR_LEGACY_CHECK_OFFSET(activity_recognition_device, get_environment_interface,
                       sizeof(hw_device_t) + sizeof(void*));

#undef AR_LEGACY_CHECK_OFFSET
#endif  // __LP64__
