/* Sends as many messages at once as there are channels, each from a thread of its own.
 *
 *   channels SERVER PORT FROM TO COUNT */
#include "tell.h"

#include <pthread.h>

enum { AddressSize = 259, TextSize = 64 };

struct Job {
    uint32_t Channel;
    const char* Server;
    const char* From;
    const char* To;
    int32_t Status;
    pthread_t Thread;
    int IsStarted;
};

/* What one thread does with its channel. No other thread touches it meanwhile. */
static void* SendOne(void* argument)
{
    struct Job* job = argument;
    char text[TextSize];
    snprintf(text, sizeof text, "This is message %u.\r\n", (unsigned)job->Channel);
    job->Status = rynSmtpConnect(job->Channel, job->Server, job->From, NULL);
    if (job->Status >= 0)
        job->Status = rynSendEmail(job->Channel, job->To, NULL, NULL, "Hello", text, NULL);
    if (job->Status >= 0)
        rynClose(job->Channel); /* the message is sent, whatever the farewell brings */
    return NULL;
}

/* Starts a thread for each channel and waits for all. Returns how many have failed. */
static int RunAll(struct Job* jobs, uint32_t count)
{
    int failures = 0;
    for (uint32_t i = 0; i < count; i++) {
        jobs[i].IsStarted = pthread_create(&jobs[i].Thread, NULL, SendOne, &jobs[i]) == 0;
        if (!jobs[i].IsStarted)
            fprintf(stderr, "no thread for channel %u\n", (unsigned)i);
    }
    for (uint32_t i = 0; i < count; i++) {
        if (jobs[i].IsStarted)
            pthread_join(jobs[i].Thread, NULL);
        if (jobs[i].IsStarted && jobs[i].Status < 0)
            Tell(i, "sending", jobs[i].Status); /* rynRelease drops the connection */
        failures += !jobs[i].IsStarted || jobs[i].Status < 0;
    }
    return failures;
}

int main(int count, char** words)
{
    static struct Job jobs[RYN_MAX_CHANNELS];
    char from[AddressSize], to[AddressSize];
    const unsigned long wanted = count == 6 ? strtoul(words[5], NULL, 10) : 0;
    if (wanted < 1 || wanted > RYN_MAX_CHANNELS) {
        fprintf(stderr, "usage: channels SERVER PORT FROM TO COUNT\nCOUNT is 1 to %d\n",
                RYN_MAX_CHANNELS);
        return 2;
    }
    if (!MakeAddress(from, sizeof from, words[3]) || !MakeAddress(to, sizeof to, words[4]))
        return 1;
    const uint32_t channels = (uint32_t)wanted;
    const int32_t status = rynAttach(channels);
    if (status < 0)
        return Tell(0, "starting", status);
    /* Settings of the process are made while no channel runs. */
    rynIntegerParam(0, RYN_COMMAND_GAP, 0);
    for (uint32_t i = 0; i < channels; i++) {
        rynIntegerParam(i, RYN_SMTP_PORT, (uint32_t)strtoul(words[2], NULL, 10));
        jobs[i] = (struct Job){ .Channel = i, .Server = words[1], .From = from, .To = to };
    }
    const int failures = RunAll(jobs, channels);
    rynRelease(); /* all threads are back */
    return failures > 0;
}
