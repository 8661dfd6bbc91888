// Permissions for what the agent's own user makes for itself alone. The system and the administrators, whom
// nothing is closed to for good, are let in as well.
#pragma once

#include <cstdio>
#include <windows.h>

#include <sddl.h>

class owner_only {
public:
    owner_only() {
        char *user = user_text();
        if (user == nullptr) return;
        char text[256];
        snprintf(text, sizeof text, "D:P(A;OICI;FA;;;%s)(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)", user);
        LocalFree(user);
        if (!ConvertStringSecurityDescriptorToSecurityDescriptorA(text, SDDL_REVISION_1, &descriptor_,
                                                                  nullptr))
            descriptor_ = nullptr;
    }
    ~owner_only() {
        if (descriptor_ != nullptr) LocalFree(descriptor_);
    }
    owner_only(const owner_only &) = delete;
    owner_only &operator=(const owner_only &) = delete;

    bool made() const { return descriptor_ != nullptr; }
    SECURITY_ATTRIBUTES *attributes() {
        attributes_ = {
            .nLength = sizeof attributes_, .lpSecurityDescriptor = descriptor_, .bInheritHandle = FALSE};
        return &attributes_;
    }
    PSECURITY_DESCRIPTOR descriptor() const { return descriptor_; }

private:
    // The present user in the words of a security descriptor, or absent.
    static char *user_text() {
        HANDLE token = nullptr;
        if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) return nullptr;
        alignas(TOKEN_USER) char room[sizeof(TOKEN_USER) + SECURITY_MAX_SID_SIZE];
        DWORD size = 0;
        char *text = nullptr;
        if (GetTokenInformation(token, TokenUser, room, sizeof room, &size) &&
            !ConvertSidToStringSidA(reinterpret_cast<TOKEN_USER *>(room)->User.Sid, &text))
            text = nullptr;
        CloseHandle(token);
        return text;
    }

    PSECURITY_DESCRIPTOR descriptor_ = nullptr;
    SECURITY_ATTRIBUTES attributes_ = {};
};

// Closes an open file to all others.
inline bool restrict_to_owner(HANDLE file) {
    owner_only only;
    return only.made() &&
           SetKernelObjectSecurity(file, DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                                   only.descriptor());
}
