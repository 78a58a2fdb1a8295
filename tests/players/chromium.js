// Plays files in a page, each from its middle to its end and once from the start, and prints what the page saw.
const fs = require("fs");
const path = require("path");
const { chromium } = require("playwright-core");

async function watch() {
  const video = document.querySelector("video");
  const happens = (name) => new Promise((resolve, reject) => {
    video.addEventListener(name, resolve, { once: true });
    video.addEventListener("error", () => reject(new Error(video.error.message)), { once: true });
  });
  if (video.readyState < 1) await happens("loadedmetadata");
  const seen = { duration: video.duration, width: video.videoWidth, height: video.videoHeight };
  let done = happens("ended");
  await video.play();
  await done;
  seen.end = video.currentTime;
  seen.frames = video.getVideoPlaybackQuality().totalVideoFrames;
  done = happens("seeked");
  video.currentTime = video.duration / 2;
  await done;
  seen.middle = video.currentTime;
  const canvas = document.createElement("canvas");
  canvas.width = canvas.height = 16;
  const pixels = canvas.getContext("2d");
  pixels.drawImage(video, 0, 0, 16, 16);
  seen.ready = video.readyState;
  return seen;
}

(async () => {
  const browser = await chromium.launch({
    executablePath: process.argv[2], headless: true,
    args: ["--no-sandbox", "--autoplay-policy=no-user-gesture-required", "--mute-audio"],
  });
  const seen = {};
  for (const file of process.argv.slice(3)) {
    const html = file + ".html";
    fs.writeFileSync(html, `<video src="${path.basename(file)}"></video>`);
    const page = await browser.newPage();
    await page.goto("file://" + html);
    seen[file] = await page.evaluate(watch);
    await page.close();
  }
  await browser.close();
  console.log(JSON.stringify(seen));
})().catch((error) => { console.error(error); process.exit(1); });
