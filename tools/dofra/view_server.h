// The `dofra view` server: the page, the picture's data and its renders,
// served to a browser on this machine by cpp-httplib.
#ifndef DOFRA_TOOLS_VIEW_SERVER_H
#define DOFRA_TOOLS_VIEW_SERVER_H

#include <httplib.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>

#include "cli.h"
#include "renderer.h"
#include "view_params.h"

namespace dofra_tool {

// One computation at a time. Of the renders that wait, only the newest goes
// on; older ones are told they were replaced. Exports are never replaced.
class RenderGate {
 public:
  // Waits for the turn; false when a newer render came in meanwhile.
  bool Enter(bool replaceable);
  void Leave();
  // Renders that have asked so far.
  uint64_t newest();

 private:
  std::mutex mutex_;
  std::condition_variable turn_;
  bool busy_ = false;
  uint64_t newest_ = 0;
};

// A page asset, embedded in the tool when it is built.
struct ViewAsset {
  const char* path;
  const char* type;
  const char* body;
};
extern const ViewAsset kViewAssets[];
extern const size_t kViewAssetCount;

struct ViewSetup {
  const CommandSpec* command;  // whose options parse a request's settings
  SettingValues start;         // the command line's settings: what "reset" returns to
  std::string tool;            // this program, for the exported command line
  std::string image;           // the files named on the command line, as absolute paths
  std::string disparity;
};

class ViewServer {
 public:
  ViewServer(PictureRenderer* renderer, ViewSetup setup);

  // Binds to address:port, any free port for 0; the port, or -1.
  int Bind(const std::string& address, int port);
  // "address:port" as a URL names it, and as the Host header must.
  const std::string& host() const { return host_; }
  // Serves until Stop; false when it could not.
  bool Listen() { return http_.listen_after_bind(); }
  void Stop() { http_.stop(); }
  bool running() const { return http_.is_running(); }

 private:
  void Dispatch(const httplib::Request& request, httplib::Response& response);
  void Session(const httplib::Request& request, httplib::Response& response);
  void Input(const httplib::Request& request, httplib::Response& response);
  void Render(const httplib::Request& request, httplib::Response& response);
  void Export(const httplib::Request& request, httplib::Response& response);
  // Parses the request, renders it when its turn comes, and answers while
  // the turn lasts. Refusals and replacements are thrown.
  void RenderThen(const httplib::Request& request, bool replaceable,
                  const std::function<void(const SettingValues&)>& answer);
  std::string Command(const SettingValues& values) const;

  httplib::Server http_;
  PictureRenderer* renderer_;
  ViewSetup setup_;
  std::string host_;  // what the Host header must say: the bound address and port
  RenderGate gate_;
  std::deque<double> weight_ms_;  // the last renders' library calls
  std::deque<double> blur_ms_;
};

}  // namespace dofra_tool

#endif  // DOFRA_TOOLS_VIEW_SERVER_H
