// A test with the virtual receiver on the other side of a pseudo-terminal
// and a temporary directory for its files; both are gone after the test.
#pragma once

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "sim/sim.h"
#include "tests/support/harness.h"

class SimTest : public ::testing::Test {
protected:
    void TearDown() override {
        for (const std::string &p : linked_) release_port(p);
        sim_free(sim_);
        if (!dir_.empty()) remove_tree(dir_);
    }

    // Starts the receiver of a platform; port_ is then the name of its
    // device for the tool (its path, or under wine a COM port linked to it).
    void start_sim(const char *platform, const SimFaults &faults) {
        SimConfig cfg;
        cfg.platform = platform;
        cfg.faults = faults;
        std::string error;
        sim_ = sim_start(cfg, &error);
        ASSERT_NE(sim_, nullptr) << error;
        port_ = port_for_device(sim_slave_path(sim_));
        ASSERT_FALSE(port_.empty()) << "no free COM name for " << sim_slave_path(sim_);
        linked_.push_back(port_);
    }

    // -m model -o mode -p <the receiver's port> -b 115200, then extra.
    std::vector<std::string> tool_args(const char *model, const char *mode,
                                       const std::vector<std::string> &extra) const {
        std::vector<std::string> a = {"-m", model, "-o", mode, "-p", port_, "-b", "115200"};
        a.insert(a.end(), extra.begin(), extra.end());
        return a;
    }

    std::string dir() {
        if (dir_.empty()) dir_ = make_temp_dir();
        return dir_;
    }

    // Stops the receiver (after it has taken in all still on the line) and
    // returns what it got.
    SimRecord finish() {
        sim_stop(sim_);
        return sim_record(sim_);
    }

    // The masked output without echoes of received text (those go to
    // *echoed), the port handle checked and masked as "uart_fd:<fd>".
    static std::string out_of(const ToolRun &r, std::string *echoed = nullptr) {
        std::string s = strip_echoes(mask(r.out), echoed);
        std::smatch m;
        if (std::regex_search(s, m, std::regex(R"(uart_fd:(\d+)\n)"))) {
            EXPECT_GE(std::stoi(m[1]), 3);
        }
        return std::regex_replace(s, std::regex(R"(uart_fd:\d+\n)"), "uart_fd:<fd>\n");
    }

    Sim *sim_ = nullptr;
    std::string port_;
    std::vector<std::string> linked_;  // names from port_for_device, given back after the test
    std::string dir_;
};
