// For --script: plays the score bug from outside the page.
//   pennywort render examples/demo/score.html --script examples/demo/score-script.js --transparent
//       --seconds 6 --verbose -o score.mov
scoreBug.pause();
setTimeout(() => scoreBug.goal('away'), 1000);
setTimeout(() => scoreBug.goal('away'), 3500);
return 'two goals to come';
