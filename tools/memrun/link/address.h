// The address of a socket in a folder, however long the folder's path is.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

namespace memrun::link {

// Names the socket by its path, or by the descriptor of its folder, which the object holds open, where an
// address has no room for the path. Allocates nothing.
class FolderAddress {
  public:
    FolderAddress(const char* folder, const char* name);
    ~FolderAddress();
    FolderAddress(const FolderAddress&) = delete;
    FolderAddress& operator=(const FolderAddress&) = delete;

    bool is_valid() const { return is_valid_; }
    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&address_); }
    static socklen_t size() { return sizeof(sockaddr_un); }

  private:
    int folder_ = -1;
    bool is_valid_ = false;
    sockaddr_un address_ = {};
};

}  // namespace memrun::link
