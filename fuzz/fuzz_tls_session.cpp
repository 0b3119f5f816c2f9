// The command stream over TLS, after the handshake (command_stream.h): the TLS stream's reads,
// line framing and sends, with the test PKI's client certificate.
#include "fuzz/command_stream.h"

namespace {

std::string tlsSettings() {
    using testsupport::pkiFile;
    return "TlsCertificate=" + pkiFile("server.pem") + "\nTlsKey=" + pkiFile("server.key") +
           "\nTlsClientCA=" + pkiFile("ca.pem") + "\n";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const fuzzstream::Server server(tlsSettings());
    return fuzzstream::serve<testsupport::TlsClient>(server, data, size);
}
