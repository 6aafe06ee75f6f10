/* A producer in C: the whole picture goes from black to white and back, thirty times a second. */
#include <pavo/producer.h>

#include <signal.h>
#include <stdio.h>
#include <string.h>

static volatile sig_atomic_t isStopped;

static void stop(int number)
{
    (void)number;
    isStopped = 1;
}

int main(void)
{
    pavo_producer_config config = PAVO_PRODUCER_CONFIG_INIT(PAVO_BGRA, 640, 360);
    config.rate_numerator = 30;
    pavo_producer* producer = NULL;
    const pavo_status status = pavo_producer_open(&config, &producer);
    if (status != PAVO_OK) {
        fprintf(stderr, "no producer: %s\n", pavo_status_text(status));
        return 1;
    }
    signal(SIGINT, stop);
    signal(SIGTERM, stop);
    for (int shade = 0; !isStopped; shade = (shade + 2) % 512) {
        pavo_frame frame;
        pavo_producer_wait_for_next_frame(producer);
        if (pavo_producer_begin_frame(producer, &frame) != PAVO_OK) continue; /* nobody watches */
        for (uint32_t y = 0; y < frame.height; ++y)
            memset(frame.planes[0].data + y * frame.planes[0].stride, shade < 256 ? shade : 511 - shade,
                   (size_t)frame.width * 4);
        pavo_producer_send_frame(producer, &frame, NULL);
    }
    pavo_producer_close(producer);
    return 0;
}
