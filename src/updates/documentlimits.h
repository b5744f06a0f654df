#pragma once

#include <QByteArray>

class QNetworkReply;

// The version document and the allowed-URL list come over plain http, so anyone on the path can
// send a body that never ends or never comes. Both are a few KB: a reply past a generous size or
// a time-out is aborted and goes the way of any failed request.
namespace DocumentLimits {
constexpr qint64 maxBytes = 256 * 1024;
constexpr int defaultTimeoutMs = 30000;

int timeoutMs();
// Tests run the clock faster; 0 or less restores the default.
void setTimeoutMsForTests(int ms);

// Aborts `reply` once it announces or brings more than maxBytes, or once it outlives the time-out.
void guard(QNetworkReply* reply);
// The body of a finished reply, never more than maxBytes of it.
QByteArray read(QNetworkReply* reply);
} // namespace DocumentLimits
