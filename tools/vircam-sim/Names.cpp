// Copyright (C) 2026 The libvircam Authors

#include "Names.h"

namespace vircam_sim {

using android::hardware::camera::common::V1_0::Status;
using vendor::travik::hardware::camera::vircamera::V1_0::VirCamOptRet;

const char* StatusName(Status status) {
    switch (status) {
        case Status::OK:
            return "OK";
        case Status::ILLEGAL_ARGUMENT:
            return "ILLEGAL_ARGUMENT";
        case Status::CAMERA_IN_USE:
            return "CAMERA_IN_USE";
        case Status::MAX_CAMERAS_IN_USE:
            return "MAX_CAMERAS_IN_USE";
        case Status::METHOD_NOT_SUPPORTED:
            return "METHOD_NOT_SUPPORTED";
        case Status::OPERATION_NOT_SUPPORTED:
            return "OPERATION_NOT_SUPPORTED";
        case Status::CAMERA_DISCONNECTED:
            return "CAMERA_DISCONNECTED";
        case Status::INTERNAL_ERROR:
            return "INTERNAL_ERROR";
    }
    return "unknown status";
}

const char* OptRetName(VirCamOptRet ret) {
    switch (ret) {
        case VirCamOptRet::OPT_CTRL_SESSION_OK:
            return "OPT_CTRL_SESSION_OK";
        case VirCamOptRet::OPT_CTRL_SESSION_FAILED:
            return "OPT_CTRL_SESSION_FAILED";
        case VirCamOptRet::OPT_CONFIG_STREAM_OK:
            return "OPT_CONFIG_STREAM_OK";
        case VirCamOptRet::OPT_CONFIG_STREAM_FAILED:
            return "OPT_CONFIG_STREAM_FAILED";
        case VirCamOptRet::OPT_DATA_SESSION_OK:
            return "OPT_DATA_SESSION_OK";
        case VirCamOptRet::OPT_DATA_SESSION_FAILED:
            return "OPT_DATA_SESSION_FAILED";
    }
    return "unknown result";
}

std::string SwitchResultText(int32_t code) {
    switch (code) {
        case 1:
            return "1 control session failed";
        case 101:
            return "101 stream configuration or HAL init failed";
        case 201:
            return "201 data session failed";
        case 300:
            return "300 switched";
        case 301:
            return "301 switch failed or refused";
        default:
            return std::to_string(code) + " unknown code";
    }
}

}  // namespace vircam_sim
