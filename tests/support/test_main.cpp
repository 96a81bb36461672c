// Shared main of the test programs: each test process gets a socket directory and a manifest
// directory of its own, so tests never see each other's services or declarations.
#include <android/binder_process.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    std::string dir;
    if (getenv("HOSTBINDER_DIR") == nullptr) {
        std::string tmpl = std::filesystem::temp_directory_path() / "paxtest-XXXXXX";
        if (mkdtemp(tmpl.data()) == nullptr) {
            perror("mkdtemp");
            return 2;
        }
        dir = tmpl;
        setenv("HOSTBINDER_DIR", dir.c_str(), 1);
    }
    // Declarations are the test's own too: only the fragments a test writes declare anything,
    // never the ones the build installs beside the library.
    if (getenv("HOSTBINDER_VINTF_DIR") == nullptr) {
        setenv("HOSTBINDER_VINTF_DIR", (std::string(getenv("HOSTBINDER_DIR")) + "/vintf").c_str(),
               1);
    }
    ABinderProcess_startThreadPool();  // as a vendor process would, for callbacks and deaths
    int rc = RUN_ALL_TESTS();
    if (!dir.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
    }
    return rc;
}
