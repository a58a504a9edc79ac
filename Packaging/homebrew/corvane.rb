# Installs Corvane's command with Homebrew, from its sources. Untried: it was written where there is no
# Homebrew. It belongs into a tap of Corvane's owner, and needs three things that only the owner has: the
# address (here), the checksum of the archive, and the licence once it is chosen.
class Corvane < Formula
  address = "https://corvane.example" # the only place that names where the sources are

  desc "Command-line companion of Corvane, and the hook command of AI coding agents"
  homepage address
  url "#{address}/corvane-1.0.0.tar.gz"
  sha256 "0000000000000000000000000000000000000000000000000000000000000000"
  license :cannot_represent # not decided yet

  depends_on "cmake" => :build
  depends_on "ninja" => :build
  depends_on "pkgconf" => :build
  depends_on "cmark-gfm"
  depends_on macos: :ventura # of which 13.3 is the first that will do
  depends_on "utf8proc"

  uses_from_macos "expat"

  def install
    system "cmake", "-G", "Ninja", "-S", ".", "-B", "build", "-DCORVANE_TESTS=OFF", *std_cmake_args
    system "cmake", "--build", "build"
    system "cmake", "--install", "build"
  end

  test do
    assert_match "corvanectl <command>", shell_output("#{bin}/corvanectl help")
    socket = testpath/"s"
    corvane = spawn bin/"corvane-headless", "--socket", socket.to_s, "--quiet"
    begin
      sleep 0.1 until socket.socket?
      with_env("CORVANE_SOCKET" => socket.to_s) do
        assert_equal "Site\n", shell_output("#{bin}/corvanectl current")
      end
    ensure
      Process.kill "TERM", corvane
      Process.wait corvane
    end
  end
end
