#include "platform/posix/trust_store.h"

#include <openssl/asn1.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>
#include <openssl/x509v3.h>

#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace zln {
namespace {

template <auto free>
struct Freed {
  template <typename T>
  void operator()(T* object) const {
    free(object);
  }
};
using Certificate = std::unique_ptr<X509, Freed<&X509_free>>;
using Name = std::unique_ptr<X509_NAME, Freed<&X509_NAME_free>>;
using File = std::unique_ptr<BIO, Freed<&BIO_free>>;

// A pointer and a length, as the functions of ASN.1 move them along.
struct Der {
  const unsigned char* bytes;
  long length;
};

// Steps into the element that comes next, whose inside is what is left then.
bool enter(Der& der) {
  int tag;
  int tagClass;
  const unsigned char* inside = der.bytes;
  long length;
  if ((ASN1_get_object(&inside, &length, &tag, &tagClass, der.length) & 0x80) != 0) return false;
  der = {inside, length};
  return true;
}

bool skip(Der& der) {
  Der element = der;
  if (!enter(element)) return false;
  const unsigned char* const end = element.bytes + element.length;
  der = {end, der.length - (end - der.bytes)};
  return true;
}

bool hasVersion(const Der& tbsCertificate) {
  return tbsCertificate.length > 0 &&
         *tbsCertificate.bytes == (V_ASN1_CONTEXT_SPECIFIC | V_ASN1_CONSTRUCTED);
}

// The name of whom a certificate is about. Only what stands before it is looked at, and no key is
// decoded, which is what takes the time.
Name subject(Der certificate) {
  if (!enter(certificate) || !enter(certificate)) return nullptr;
  if (hasVersion(certificate) && !skip(certificate)) return nullptr;
  constexpr int kSerialSignatureIssuerValidity = 4;
  for (int i = 0; i < kSerialSignatureIssuerValidity; ++i) {
    if (!skip(certificate)) return nullptr;
  }
  return Name(d2i_X509_NAME(nullptr, &certificate.bytes, certificate.length));
}

// Names that count as the same have the same.
std::uint32_t hashOf(const X509_NAME* name) {
  return static_cast<std::uint32_t>(X509_NAME_hash_ex(name, nullptr, nullptr, nullptr));
}

// The certificates of a file, most of which nobody will ever ask for.
class EncodedCertificates {
 public:
  void add(std::string_view kind, const unsigned char* bytes, long length) {
    const bool hasTrust = kind == PEM_STRING_X509_TRUSTED;
    if (!hasTrust && kind != PEM_STRING_X509 && kind != PEM_STRING_X509_OLD) return;
    const Name name = subject({bytes, length});
    if (!name) return;
    entries_.push_back({hashOf(name.get()), hasTrust, bytes_.size(), length});
    bytes_.append(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
  }

  void shrink() {
    entries_.shrink_to_fit();
    bytes_.shrink_to_fit();
  }

  bool isEmpty() const { return entries_.empty(); }

  // Calls `take` with each certificate about the one of that name.
  template <typename Take>
  void find(const X509_NAME* name, Take take) const {
    const std::uint32_t hash = hashOf(name);
    for (const Entry& entry : entries_) {
      if (entry.hash != hash) continue;
      const Certificate certificate = decode(entry);
      if (certificate && X509_NAME_cmp(X509_get_subject_name(certificate.get()), name) == 0) {
        take(certificate);
      }
    }
  }

 private:
  struct Entry {
    std::uint32_t hash;
    bool hasTrust;
    std::size_t begin;
    long length;
  };

  Certificate decode(const Entry& entry) const {
    auto bytes = reinterpret_cast<const unsigned char*>(bytes_.data()) + entry.begin;
    const auto decoder = entry.hasTrust ? &d2i_X509_AUX : &d2i_X509;
    return Certificate(decoder(nullptr, &bytes, entry.length));
  }

  std::vector<Entry> entries_;
  std::string bytes_;
};

// ---- How OpenSSL finds a certificate that is not in its store yet ----

// What the store holds about that name. The store keeps it, so that whoever asked may take a share.
int offerFromStore(X509_STORE* store, const X509_NAME* name, X509_OBJECT* found) {
  int isFound = 0;
  X509_STORE_lock(store);
  X509_OBJECT* const kept =
      X509_OBJECT_retrieve_by_subject(X509_STORE_get0_objects(store), X509_LU_X509, name);
  if (kept != nullptr) isFound = X509_OBJECT_set1_X509(found, X509_OBJECT_get0_X509(kept));
  X509_STORE_unlock(store);
  // Whoever asked takes a share by himself: the one that `found` was given would be one too many.
  if (isFound == 1) X509_free(X509_OBJECT_get0_X509(found));
  return isFound;
}

// Another thread may have added the same certificates just before: then the store keeps those.
int bySubject(X509_LOOKUP* lookup, X509_LOOKUP_TYPE type, const X509_NAME* name,
              X509_OBJECT* found) {
  if (type != X509_LU_X509) return 0;
  const auto* certificates =
      static_cast<const EncodedCertificates*>(X509_LOOKUP_get_method_data(lookup));
  X509_STORE* const store = X509_LOOKUP_get_store(lookup);
  certificates->find(name, [store](const Certificate& certificate) {
    // Looks into the certificate now, before threads share it. Otherwise the first to use it would.
    X509_check_purpose(certificate.get(), -1, 0);
    X509_STORE_add_cert(store, certificate.get());
  });
  return offerFromStore(store, name, found);
}

void forget(X509_LOOKUP* lookup) {
  delete static_cast<EncodedCertificates*>(X509_LOOKUP_get_method_data(lookup));
}

// Lives as long as the process.
X509_LOOKUP_METHOD* lookupMethod() {
  static X509_LOOKUP_METHOD* const method = [] {
    X509_LOOKUP_METHOD* const made = X509_LOOKUP_meth_new("certificates of a file");
    if (made != nullptr) {
      X509_LOOKUP_meth_set_get_by_subject(made, &bySubject);
      X509_LOOKUP_meth_set_free(made, &forget);
    }
    return made;
  }();
  return method;
}

// ---- Reading a file ----

// A block of the text between a line that begins it and one that ends it.
struct Block {
  ~Block() {
    OPENSSL_free(kind);
    OPENSSL_free(header);
    OPENSSL_free(bytes);
  }
  char* kind = nullptr;
  char* header = nullptr;
  unsigned char* bytes = nullptr;
  long length = 0;
};

bool isAtEnd() { return ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE; }

// A damaged block costs itself alone.
std::unique_ptr<EncodedCertificates> readCertificates(const std::string& file) {
  const File input(BIO_new_file(file.c_str(), "rb"));
  if (!input) return nullptr;
  auto certificates = std::make_unique<EncodedCertificates>();
  while (true) {
    Block block;
    if (PEM_read_bio(input.get(), &block.kind, &block.header, &block.bytes, &block.length) == 1) {
      certificates->add(block.kind, block.bytes, block.length);
    } else if (isAtEnd()) {
      break;
    }
  }
  certificates->shrink();
  return certificates->isEmpty() ? nullptr : std::move(certificates);
}

TrustStore::Authorities storeOf(std::unique_ptr<EncodedCertificates> certificates) {
  TrustStore::Authorities authorities(X509_STORE_new(), &X509_STORE_free);
  if (!certificates || !authorities || lookupMethod() == nullptr) return nullptr;
  X509_LOOKUP* const lookup = X509_STORE_add_lookup(authorities.get(), lookupMethod());
  if (lookup == nullptr) return nullptr;
  X509_LOOKUP_set_method_data(lookup, certificates.release());
  return authorities;
}

TrustStore::Authorities readAuthorities(const std::string& file) {
  TrustStore::Authorities authorities = storeOf(readCertificates(file));
  // What OpenSSL notes for this thread must not be taken for the fault of a later connection.
  ERR_clear_error();
  return authorities;
}

bool isSameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

}  // namespace

TrustStore::Authorities TrustStore::of(const std::string& file) {
  struct stat facts {};
  const bool isThere = stat(file.c_str(), &facts) == 0;
  std::lock_guard lock(mutex_);
  // While a file is being replaced, what was read of it goes on to count.
  if (!isThere) return file == file_ ? authorities_ : nullptr;
  if (!authorities_ || file != file_ || !isSameFile(facts, facts_)) {
    authorities_ = readAuthorities(file);
    file_ = file;
    facts_ = facts;
  }
  return authorities_;
}

}  // namespace zln
