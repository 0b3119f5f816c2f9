#include "net/stream.h"

#include "net/sockets.h"

namespace net {

SocketStream::SocketStream(std::unique_ptr<TCPSocket> socket) : mSocket(std::move(socket)) {}

SocketStream::~SocketStream() = default;

int SocketStream::shutdownBoth() {
    return mSocket->shutdownBoth();
}

std::string SocketStream::getForeignAddress() const {
    return mSocket->getForeignAddress();
}

int SocketStream::setNoDelay() {
    return mSocket->setNoDelay();
}

int SocketStream::setCork(bool on) {
    return mSocket->setCork(on);
}

int PlainStream::getLine(std::string& line, double timeout) {
    return mSocket->getLine(line, timeout);
}

void PlainStream::setMaxLineLength(size_t maxBytes) {
    mSocket->setMaxLineLength(maxBytes);
}

void PlainStream::setKeepPartialLines(bool keep) {
    mSocket->setKeepPartialLines(keep);
}

bool PlainStream::hasBufferedLine() const {
    return mSocket->hasBufferedLine();
}

int PlainStream::readSome(char* area, int size, double timeout) {
    return mSocket->recvSome(area, size, timeout);
}

const std::string& PlainStream::lastError() const {
    return mSocket->lastError();
}

const std::string& PlainStream::lastSendError() const {
    return mSocket->lastSendError();
}

int PlainStream::sendWithin(const void* buffer, int bufferLen, double timeout) {
    return mSocket->sendWithin(buffer, bufferLen, timeout);
}

}  // namespace net
