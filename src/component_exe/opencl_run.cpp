// SPDX-License-Identifier: BSD-3-Clause

// The hidden command `run-model`: one kernel on the memory in files. It ends with status 0 when the
// files are written; otherwise its last line on standard error says what is wrong.

#include "calls.h"
#include "opencl.h"
#include "unique_fd.h"

#define CL_TARGET_OPENCL_VERSION 120
#include <CL/cl.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>

#include <dlfcn.h>
#include <sys/mman.h>

namespace bfcl::component {

namespace {

struct RunOptions {
  std::string folder;
  std::size_t calls = 0;
  std::size_t argument_bytes = 0;
  std::size_t result_bytes = 0;
  std::size_t pages = 0;
};

bool fail(const std::string& text) {
  std::fprintf(stderr, "%s\n", text.c_str());
  return false;
}

// Memory that is a file or the component's memory, and lives until the process ends.
class Mapping {
public:
  // A file below the folder, made `bytes` long, whose contents others see at once.
  [[nodiscard]] bool map_file(const std::string& path, std::size_t bytes) {
    m_bytes = std::max<std::size_t>(bytes, 1);
    const unique_fd file(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!file || ftruncate(file.get(), static_cast<off_t>(m_bytes)) != 0) {
      return fail("cannot write " + path + ": " + std::strerror(errno));
    }
    return take(mmap(nullptr, m_bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file.get(), 0));
  }

  // The pages of calls.h, each followed by one that nobody may access.
  [[nodiscard]] bool map_pages(std::size_t pages) {
    m_bytes = std::max<std::size_t>(pages * PAGE_STRIDE, 1);
    bool good =
        take(mmap(nullptr, m_bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    for (std::size_t page = 0; good && page < pages; ++page) {
      good = mprotect(m_data + page * PAGE_STRIDE + PAGE_BYTES, PAGE_STRIDE - PAGE_BYTES,
                      PROT_NONE) == 0;
    }
    return good || fail(std::string("cannot map the memory of the calls: ") + std::strerror(errno));
  }

  [[nodiscard]] unsigned char* data() const { return m_data; }
  [[nodiscard]] std::size_t bytes() const { return m_bytes; }

private:
  bool take(void* address) {
    m_data = address != MAP_FAILED ? static_cast<unsigned char*>(address) : nullptr;
    return m_data != nullptr || fail(std::string("cannot map a file: ") + std::strerror(errno));
  }

  unsigned char* m_data = nullptr;
  std::size_t m_bytes = 0;
};

// The functions of the OpenCL loader, which need not be installed where this program is.
struct OpenCl {
  decltype(&::clGetPlatformIDs) clGetPlatformIDs = nullptr;
  decltype(&::clGetDeviceIDs) clGetDeviceIDs = nullptr;
  decltype(&::clCreateContext) clCreateContext = nullptr;
  decltype(&::clCreateCommandQueue) clCreateCommandQueue = nullptr;
  decltype(&::clCreateProgramWithSource) clCreateProgramWithSource = nullptr;
  decltype(&::clBuildProgram) clBuildProgram = nullptr;
  decltype(&::clGetProgramBuildInfo) clGetProgramBuildInfo = nullptr;
  decltype(&::clCreateKernel) clCreateKernel = nullptr;
  decltype(&::clCreateBuffer) clCreateBuffer = nullptr;
  decltype(&::clSetKernelArg) clSetKernelArg = nullptr;
  decltype(&::clEnqueueNDRangeKernel) clEnqueueNDRangeKernel = nullptr;
  decltype(&::clFinish) clFinish = nullptr;

  [[nodiscard]] bool load() {
    void* library = dlopen("libOpenCL.so.1", RTLD_NOW);
    if (library == nullptr) {
      return fail("the OpenCL loader libOpenCL.so.1 is not installed");
    }
    const auto find = [library](const char* name, auto& function) {
      function =
          reinterpret_cast<std::remove_reference_t<decltype(function)>>(dlsym(library, name));
      return function != nullptr;
    };
    const bool good =
        find("clGetPlatformIDs", clGetPlatformIDs) && find("clGetDeviceIDs", clGetDeviceIDs) &&
        find("clCreateContext", clCreateContext) &&
        find("clCreateCommandQueue", clCreateCommandQueue) &&
        find("clCreateProgramWithSource", clCreateProgramWithSource) &&
        find("clBuildProgram", clBuildProgram) &&
        find("clGetProgramBuildInfo", clGetProgramBuildInfo) &&
        find("clCreateKernel", clCreateKernel) && find("clCreateBuffer", clCreateBuffer) &&
        find("clSetKernelArg", clSetKernelArg) &&
        find("clEnqueueNDRangeKernel", clEnqueueNDRangeKernel) && find("clFinish", clFinish);
    return good || fail("libOpenCL.so.1 lacks functions of OpenCL 1.2");
  }
};

// Runs the kernel on this machine's processor, whose memory the buffers are. The objects live until
// the process ends.
class Runner {
public:
  [[nodiscard]] bool open() {
    if (!m_cl.load() || !find_device()) {
      return false;
    }
    cl_int error = CL_SUCCESS;
    m_context = m_cl.clCreateContext(nullptr, 1, &m_device, nullptr, nullptr, &error);
    m_queue =
        error == CL_SUCCESS ? m_cl.clCreateCommandQueue(m_context, m_device, 0, &error) : nullptr;
    return check("a command queue", error);
  }

  [[nodiscard]] bool build(const std::string& source) {
    const char* text = source.c_str();
    const std::size_t length = source.size();
    cl_int error = CL_SUCCESS;
    cl_program program = m_cl.clCreateProgramWithSource(m_context, 1, &text, &length, &error);
    // The versions that the model may need, as for `check`.
    for (const char* options : {"-cl-std=CL2.0", "-cl-std=CL3.0", "-cl-std=CL1.2"}) {
      if (error == CL_SUCCESS &&
          m_cl.clBuildProgram(program, 1, &m_device, options, nullptr, nullptr) == CL_SUCCESS) {
        m_kernel = m_cl.clCreateKernel(program, "bfcl_run_model", &error);
        return check("the kernel", error);
      }
    }
    return fail("the C model does not compile: " + first_error(build_log(program)));
  }

  [[nodiscard]] bool add_buffer(const Mapping& memory) {
    cl_int error = CL_SUCCESS;
    cl_mem buffer = m_cl.clCreateBuffer(m_context, CL_MEM_READ_WRITE | CL_MEM_USE_HOST_PTR,
                                        memory.bytes(), memory.data(), &error);
    if (error == CL_SUCCESS) {
      error = m_cl.clSetKernelArg(m_kernel, m_arguments++, sizeof(cl_mem), &buffer);
    }
    return check("a buffer", error);
  }

  [[nodiscard]] bool run(cl_ulong calls) {
    cl_int error = m_cl.clSetKernelArg(m_kernel, m_arguments, sizeof calls, &calls);
    const std::size_t one = 1;
    if (error == CL_SUCCESS) {
      error = m_cl.clEnqueueNDRangeKernel(m_queue, m_kernel, 1, nullptr, &one, &one, 0, nullptr,
                                          nullptr);
    }
    return check("the run", error == CL_SUCCESS ? m_cl.clFinish(m_queue) : error);
  }

private:
  static bool check(const char* what, cl_int error) {
    return error == CL_SUCCESS ||
           fail(std::string("OpenCL fails at ") + what + ", with error " + std::to_string(error));
  }

  [[nodiscard]] bool find_device() {
    cl_uint count = 0;
    std::vector<cl_platform_id> platforms(16);
    m_cl.clGetPlatformIDs(static_cast<cl_uint>(platforms.size()), platforms.data(), &count);
    platforms.resize(std::min<std::size_t>(count, platforms.size()));
    for (cl_platform_id platform : platforms) {
      if (m_cl.clGetDeviceIDs(platform, CL_DEVICE_TYPE_CPU, 1, &m_device, nullptr) == CL_SUCCESS) {
        return true;
      }
    }
    return fail("no OpenCL implementation for this processor is installed (such as pocl)");
  }

  [[nodiscard]] std::string build_log(cl_program program) const {
    std::size_t size = 0;
    m_cl.clGetProgramBuildInfo(program, m_device, CL_PROGRAM_BUILD_LOG, 0, nullptr, &size);
    std::string log(size, '\0');
    m_cl.clGetProgramBuildInfo(program, m_device, CL_PROGRAM_BUILD_LOG, size, log.data(), nullptr);
    return log.substr(0, log.find('\0'));
  }

  static std::string first_error(const std::string& log) {
    const std::size_t error = log.find("error: ");
    const std::size_t begin = error != std::string::npos ? log.rfind('\n', error) + 1 : 0;
    return log.substr(begin, log.find('\n', begin) - begin);
  }

  OpenCl m_cl;
  cl_device_id m_device = nullptr;
  cl_context m_context = nullptr;
  cl_command_queue m_queue = nullptr;
  cl_kernel m_kernel = nullptr;
  cl_uint m_arguments = 0;
};

std::string contents(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void load_pages(const Mapping& memory, const std::string& path, std::size_t pages) {
  std::ifstream file(path, std::ios::binary);
  for (std::size_t page = 0; page < pages; ++page) {
    file.read(reinterpret_cast<char*>(memory.data() + page * PAGE_STRIDE), PAGE_BYTES);
  }
}

bool save_pages(const Mapping& memory, const std::string& path, std::size_t pages) {
  std::ofstream file(path, std::ios::binary);
  for (std::size_t page = 0; page < pages; ++page) {
    file.write(reinterpret_cast<const char*>(memory.data() + page * PAGE_STRIDE), PAGE_BYTES);
  }
  return file.flush().good() || fail("cannot write " + path);
}

bool run_model(const RunOptions& options) {
  // Nothing is kept beyond the run.
  setenv("POCL_CACHE_DIR", (options.folder + "/pocl").c_str(), 1);
  setenv("POCL_KERNEL_CACHE", "0", 1);
  setenv("POCL_MAX_PTHREAD_COUNT", "1", 1);
  Mapping arguments, results, memory, progress;
  Runner runner;
  if (!runner.open() || !runner.build(contents(options.folder + "/model.cl")) ||
      !arguments.map_file(options.folder + "/arguments.bin",
                          options.calls * options.argument_bytes) ||
      !results.map_file(options.folder + "/results.bin", options.calls * options.result_bytes) ||
      !memory.map_pages(options.pages) ||
      !progress.map_file(options.folder + "/progress.bin", sizeof(cl_ulong))) {
    return false;
  }
  load_pages(memory, options.folder + "/memory_before.bin", options.pages);
  return runner.add_buffer(arguments) && runner.add_buffer(results) && runner.add_buffer(memory) &&
         runner.add_buffer(progress) && runner.run(options.calls) &&
         save_pages(memory, options.folder + "/memory_after.bin", options.pages);
}

} // namespace

void add_run_model(CLI::App& command, int* status) {
  auto options = std::make_shared<RunOptions>();
  command.group(""); // not in the help
  command.add_option("FOLDER", options->folder)->required();
  command.add_option("CALLS", options->calls)->required();
  command.add_option("ARGUMENT_BYTES", options->argument_bytes)->required();
  command.add_option("RESULT_BYTES", options->result_bytes)->required();
  command.add_option("PAGES", options->pages)->required();
  command.callback([options, status] { *status = run_model(*options) ? STATUS_OK : STATUS_ERROR; });
}

} // namespace bfcl::component
