// The help of rynmail.
#pragma once

void PrintHelp();
