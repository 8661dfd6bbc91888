// The tag codes of the records. Plain sequences bear BE_SEQ.
#pragma once

#include "protocol/ber.h"

// Application class: (number << 3) | 3.
enum : uint32_t {
    TAG_CLIENT_WANTS = 3,
    TAG_SERVER_OFFERS = 11,
    TAG_NEGOTIATE_ACK = 19,
    TAG_NEGOTIATE_NACK = 27,
    TAG_DIFFIE_HELLMANN_PARAMETERS = 35,
    TAG_SPORADIC_BIGNUM = 43,
    TAG_AUTH_CHALLENGE = 51,
    TAG_AUTH_RESPONSE = 59,
    TAG_CONFIGURE_REQ = 67,
    TAG_CONFIGURE_RESP = 75,
    TAG_CHECKIN_REQ = 83,
    TAG_CHECKIN_RESP = 91,
    TAG_UPGRADE_REQ = 99,
    TAG_UPGRADE_RESP = 107,
    TAG_SERVER_TIME_REQ = 187,
    TAG_SERVER_TIME_RESP = 195,
    TAG_DOWNTIME_REQ = 243,
    TAG_DOWNTIME_RESP = 251,
    TAG_H_W_SCAN_REQ = 259,
    TAG_H_W_SCAN_RESP = 267,
};

// Context class: (number << 3) | 5.
enum : uint32_t {
    TAG_CONTINUOUS_CONF = 5,
    TAG_ENUM_CONF = 13,
    TAG_CLIENT_PRIVATE_KEY = 13,
    TAG_SERVER_PRIVATE_KEY = 13, // told from the client's by who sends it
    TAG_LOG_CONF = 21,
    TAG_REAL_CONTINUOUS_CONF = 29,
    TAG_ADV_LOG_CONF = 37,
};
