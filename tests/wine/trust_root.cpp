// Adds one certificate (DER file) to the machine's trusted root store, so that libraries signed
// by a throwaway test authority verify inside a Wine prefix. Used only by the Wine test set-up.
#include <windows.h>
// wincrypt.h needs the types windows.h declares.
#include <wincrypt.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

int wmain(int argc, wchar_t** argv) {
  if (argc != 2) {
    std::fwprintf(stderr, L"usage: trust_root <certificate.der>\n");
    return 2;
  }
  std::ifstream file(argv[1], std::ios::binary);
  std::vector<unsigned char> der((std::istreambuf_iterator<char>(file)),
                                 std::istreambuf_iterator<char>());
  if (!file.good() && !file.eof()) {
    std::fwprintf(stderr, L"trust_root: cannot read %ls\n", argv[1]);
    return 1;
  }
  if (der.empty()) {
    std::fwprintf(stderr, L"trust_root: %ls is empty or missing\n", argv[1]);
    return 1;
  }
  HCERTSTORE store =
      ::CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_LOCAL_MACHINE, L"Root");
  if (store == nullptr) {
    std::fwprintf(stderr, L"trust_root: CertOpenStore failed with %lu\n", ::GetLastError());
    return 1;
  }
  // Replacing keeps a second set-up of the same prefix harmless.
  const BOOL added = ::CertAddEncodedCertificateToStore(
      store, X509_ASN_ENCODING | PKCS_7_ASN_ENCODING, der.data(), static_cast<DWORD>(der.size()),
      CERT_STORE_ADD_REPLACE_EXISTING, nullptr);
  const DWORD error = added ? 0 : ::GetLastError();
  ::CertCloseStore(store, 0);
  if (!added) {
    std::fwprintf(stderr, L"trust_root: CertAddEncodedCertificateToStore failed with %08lx\n",
                  error);
    return 1;
  }
  return 0;
}
