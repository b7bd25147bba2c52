// Logging through the system log under the daemon's tag.
#pragma once

#include <android/log.h>

#define LUMX_LOG_TAG "lumx"

#define LUMX_LOGI(...) __android_log_print(ANDROID_LOG_INFO, LUMX_LOG_TAG, __VA_ARGS__)
#define LUMX_LOGW(...) __android_log_print(ANDROID_LOG_WARN, LUMX_LOG_TAG, __VA_ARGS__)
#define LUMX_LOGE(...) __android_log_print(ANDROID_LOG_ERROR, LUMX_LOG_TAG, __VA_ARGS__)
