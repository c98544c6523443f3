#include "ticket_sender.h"

TicketSender::TicketSender(QObject* parent) : QThread(parent) {}

void TicketSender::run() {}
