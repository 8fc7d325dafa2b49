#pragma once
// Subscription to host events (time changed, time unit changed, range changed).
// A client adds itself to a server and is triggered on each event.

#include <algorithm>
#include <functional>
#include <vector>

class Tclient {
public:
    virtual ~Tclient() = default;
    virtual void triggered(int message) = 0;
};

class TclientServer {
public:
    void addClient(Tclient* c) {
        if (std::find(fClients.begin(), fClients.end(), c) == fClients.end()) fClients.push_back(c);
    }
    void removeClient(Tclient* c) { fClients.erase(std::remove(fClients.begin(), fClients.end(), c), fClients.end()); }
    // Clients may remove themselves while triggered, so the list is copied first.
    void send(int message = 0) {
        auto clients = fClients;
        for (Tclient* c : clients)
            if (std::find(fClients.begin(), fClients.end(), c) != fClients.end()) c->triggered(message);
    }
    unsigned clientCount() const { return static_cast<unsigned>(fClients.size()); }

private:
    std::vector<Tclient*> fClients;
};

// A server whose events are held back while delayed and sent once when released.
class TdelayedClientServer : public TclientServer {
public:
    void delay() { ++fDepth; }
    void release() {
        if (fDepth > 0 && --fDepth == 0 && fPending) {
            fPending = false;
            TclientServer::send(fMessage);
        }
    }
    void send(int message = 0) {
        if (fDepth > 0) {
            fPending = true;
            fMessage = message;
            return;
        }
        TclientServer::send(message);
    }

private:
    int fDepth = 0;
    bool fPending = false;
    int fMessage = 0;
};
