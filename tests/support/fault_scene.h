// Runs to which bad things happen, and the rule that all of them keep: the file is the old one or
// the complete new one, the exit status tells, and what is left over is no obstacle to a later run.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "support/process.h"

// Runs of one kind, on files that are as at first before each. Scratch files go to "scratch".
struct fault_scene {
    std::string line; // program and arguments
    std::map<std::string, std::string> files;
    std::string target = "f";              // what the run is to change
    std::vector<std::string> between = {}; // states of it that a run with status 1 may leave
    std::string struck = "objtrim";        // the program that the faults are for
    bool makes_files = true;               // false: the file is changed in place

    std::unique_ptr<work_place> place = std::make_unique<work_place>();
    std::map<std::string, std::string> after = {}; // the files after a run without faults

    // One run; see faults.cpp for what a fault says.
    run_result run(const std::string& fault = "", const std::function<void()>& prepare = nullptr);
    // A run that goes well. How many calls of each kind the struck program makes.
    std::map<std::string, unsigned> run_well();
    // What is wrong with the outcome of a run, if anything. What it left over is removed.
    std::string judge(const run_result& result, const std::string& kind = "");
    // Whether a later run goes well in spite of what is in the scratch directory.
    void expect_recovery(const std::string& fault);
    // Every fault of every kind, or a selection in a short run. The number of runs.
    int strike();
    // Each of the signals before every call. The number of runs.
    int interrupt(const std::vector<int>& signals);

private:
    std::string judge_file(const std::string& name, const std::string& kind, int status) const;
    std::string clear(bool with_results) const;
};

// All kinds of runs: of ELF files, the in-place strippers, and archives.
std::vector<fault_scene> elf_scenes();
std::vector<fault_scene> in_place_scenes();
std::vector<fault_scene> archive_scenes();
std::vector<fault_scene> all_scenes();
