#include "net/tls_detail.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

namespace net {
namespace tls_detail {

std::string reason() {
    const unsigned long code = ERR_peek_last_error();
    const char* text = code != 0 ? ERR_reason_error_string(code) : nullptr;
    std::string reason = text != nullptr ? text
                         : code != 0     ? "error " + std::to_string(code)
                                         : "unknown error";
    ERR_clear_error();
    return reason;
}

void clearErrors() {
    ERR_clear_error();
}

int receivedAlert() {
    const unsigned long code = ERR_peek_last_error();
    const int reason = ERR_GET_REASON(code);
    const bool isAlert = ERR_GET_LIB(code) == ERR_LIB_SSL && reason >= SSL_AD_REASON_OFFSET;
    return isAlert ? reason - SSL_AD_REASON_OFFSET : -1;
}

void setRefusal(ssl_st* ssl, const std::string& text) {
    if (auto* refusal = static_cast<std::string*>(SSL_get_app_data(ssl))) *refusal = text;
}

}  // namespace tls_detail
}  // namespace net
