#include "settings/image_writer.h"

#include <sys/stat.h>
#include <unistd.h>

#include <OpenImageIO/filesystem.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "framework/host/atomic_file.h"

namespace {
// The writer's bytes go through our own descriptor, so that a failing
// write() is seen even where the format's library ignores the result of its
// own writes (stdio buffers hide a full disk until a close nobody checks).
class TdescriptorProxy final : public OIIO::Filesystem::IOProxy {
public:
    TdescriptorProxy(const std::string& name, int descriptor) : IOProxy(name, Write), fDescriptor(descriptor) {}
    const char* proxytype() const override { return "shadenet-descriptor"; }
    void close() override { m_mode = Closed; }

    size_t write(const void* data, size_t size) override {
        size_t put = pwrite(data, size, m_pos);
        m_pos += int64_t(put);
        return put;
    }
    size_t pwrite(const void* data, size_t size, int64_t offset) override {
        // Sequential writes use write() so that a pipe or a device works too.
        if (offset != fOffset) {
            if (::lseek(fDescriptor, offset, SEEK_SET) < 0) return fail(errno);
            fOffset = offset;
        }
        const char* p = static_cast<const char*>(data);
        size_t done = 0;
        while (done < size) {
            ssize_t n = ::write(fDescriptor, p + done, size - done);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) {
                fOffset += int64_t(done);
                return done + fail(n < 0 ? errno : EIO);
            }
            done += size_t(n);
        }
        fOffset += int64_t(size);
        return size;
    }
    size_t read(void* data, size_t size) override {
        size_t got = pread(data, size, m_pos);
        m_pos += int64_t(got);
        return got;
    }
    size_t pread(void* data, size_t size, int64_t offset) override {
        ssize_t n = ::pread(fDescriptor, data, size, offset);
        return n < 0 ? fail(errno) : size_t(n);
    }
    size_t size() const override {
        struct stat s {};
        return ::fstat(fDescriptor, &s) == 0 ? size_t(s.st_size) : 0;
    }

    // The first system error met, 0 when none.
    int failure() const { return fFailure; }

private:
    size_t fail(int code) {
        if (!fFailure) fFailure = code;
        return 0;
    }
    int fDescriptor;
    int64_t fOffset = 0;
    int fFailure = 0;
};
}  // namespace

bool writeImageFile(const std::string& path, const OIIO::ImageSpec& layout, OIIO::TypeDesc pixelType,
                    const void* pixels, std::string& error) {
    auto out = OIIO::ImageOutput::create(path);
    if (!out) {
        (void)OIIO::geterror();  // consumed, so that it does not show up under a later failure
        error = path + ": cannot write: no image format for the extension '" +
                std::filesystem::path(path).extension().string() + "'";
        return false;
    }
    TatomicFile file(path);
    if (!file.open(error)) return false;
    TdescriptorProxy proxy(path, file.descriptor());
    // The TIFF writer rewrites its directory when it adds the Exif one (a
    // colour-space tag does) and leaves a file without its image size when
    // that goes through a proxy, so TIFF writes by name.
    const bool tiff = std::strcmp(out->format_name(), "tiff") == 0;
    const bool proxied = !tiff && out->supports("ioproxy") && out->set_ioproxy(&proxy);
    // A format that cannot take the descriptor writes by name; its own
    // errors and the commit still catch a failure.
    bool ok = out->open(proxied ? path : file.path(), layout) && out->write_image(pixelType, pixels);
    ok = out->close() && ok;
    // A pending message alone is no failure: the TIFF writer leaves one
    // about its Exif directory on every good write. Lost bytes show in the
    // proxy whatever the writer says.
    if (!ok || proxy.failure()) {
        std::string reason = proxy.failure() ? std::strerror(proxy.failure()) : out->geterror();
        if (reason.empty()) reason = "the image library gave no reason";
        error = path + ": cannot write: " + reason;
        return false;  // `file` discards the temporary
    }
    return file.commit(error);
}
