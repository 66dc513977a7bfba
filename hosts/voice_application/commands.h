// SPDX-License-Identifier: MIT
/**
 * @file commands.h
 * The commands of voice_application.
 */
#pragma once

/** Runs one command. @return null when done, else why not. */
const char *command_run(char *text);
