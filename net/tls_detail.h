// Internal to the socket layer's TLS files: OpenSSL's error queue in words, and the text through
// which the certificate check tells a connection why it refused the client.
#pragma once

#include <string>

struct ssl_st;

namespace net {
namespace tls_detail {

// The reason of the most recent error in this thread's OpenSSL error queue, which it then empties;
// "unknown error" when the queue is empty.
std::string reason();
void clearErrors();
// The alert the peer sent (an SSL_AD_ code, e.g. 48 for unknown_ca) when the most recent error in
// this thread's queue is the receipt of one, else -1; the queue stays as it is.
int receivedAlert();

// A connection's application data, when set, is the std::string that receives this text.
void setRefusal(ssl_st* ssl, const std::string& text);

}  // namespace tls_detail
}  // namespace net
